// Anything in place of a datagram: what is taken apart goes together again to the same bytes.
#include <algorithm>
#include <array>
#include <cstdlib>

#include "net/media_datagram.h"

using namespace Veldrift;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const std::byte> bytes = std::as_bytes(std::span(data, size));
  static_cast<void>(ParseAudioHead(bytes));
  const auto datagram = ParseDatagram(bytes);
  if (!datagram) return 0;
  std::array<std::byte, kDatagramHeaderBytes> header;
  WriteDatagramHeader(datagram->header, header.data());
  if (!std::equal(header.begin(), header.end(), bytes.begin())) std::abort();
  if (datagram->payload.size() > kFragmentBytes || datagram->payload.empty()) std::abort();
  return 0;
}
