// Datagrams from anybody into the assembler. The input is a list of datagrams: a byte that says
// what comes, a length byte, and bytes. So that inputs get past the header, a datagram can also be
// built from a few fields, with the format's magic and lengths that add up.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "net/media_datagram.h"
#include "support/little_endian.h"
#include "tools/receiver/frame_assembler.h"

namespace {

using namespace Veldrift;

class Input {
 public:
  Input(const uint8_t* data, size_t size) : bytes_(std::as_bytes(std::span(data, size))) {}

  bool Empty() const { return bytes_.empty(); }
  uint8_t Byte() {
    if (bytes_.empty()) return 0;
    const auto value = std::to_integer<uint8_t>(bytes_[0]);
    bytes_ = bytes_.subspan(1);
    return value;
  }
  std::vector<std::byte> Take(size_t count) {
    const auto taken = bytes_.first(std::min(count, bytes_.size()));
    bytes_ = bytes_.subspan(taken.size());
    return {taken.begin(), taken.end()};
  }

 private:
  std::span<const std::byte> bytes_;
};

std::vector<std::byte> Built(Input& input) {
  DatagramHeader header;
  header.streamType = input.Byte() % 8 == 0 ? StreamType::Audio : StreamType::Video;
  header.flags = input.Byte();
  header.frameNumber = uint16_t(input.Byte() * (header.flags & 1 ? 257 : 1));
  header.fragmentCount = uint16_t(input.Byte() + 1);
  header.fragmentIndex = uint16_t(input.Byte() % header.fragmentCount);
  header.sequence = header.frameNumber * 256U + header.fragmentIndex;
  const size_t dataCount =
      header.fragmentCount - std::min<size_t>(header.fragmentCount, header.ParityCount());
  const bool parity = header.fragmentIndex >= dataCount;
  const bool last = header.fragmentIndex + 1U == dataCount;
  const uint8_t length = input.Byte();
  header.payloadLength = uint16_t(parity ? kParityPayloadBytes
                                  : last ? length + 1U
                                         : kFragmentBytes);
  if (parity) header.flags = uint8_t(header.flags & ~kFlagSendTime);
  const size_t trailer = (header.flags & kFlagSendTime) != 0 ? kSendTimeBytes : 0;
  std::vector<std::byte> bytes(kDatagramHeaderBytes + header.payloadLength + trailer,
                               std::byte{input.Byte()});
  WriteDatagramHeader(header, bytes.data());
  if (parity) PutU16(&bytes[kDatagramHeaderBytes], uint16_t(length + 1));
  return bytes;
}

void Check(const WholeFrame& frame) {
  if (frame.data.empty() || frame.data.size() > kMaxFrameBytes) std::abort();
  if (frame.wholeNs < frame.firstDatagramNs) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input input(data, size);
  uint64_t delivered = 0;
  FrameAssembler assembler(StreamType::Video, {.maxPending = 8, .maxPendingBytes = 1 << 20},
                           [&](WholeFrame&& frame) {
                             Check(frame);
                             ++delivered;
                           });
  int64_t nowNs = 0;
  while (!input.Empty()) {
    const uint8_t what = input.Byte();
    nowNs += (what >> 4) * kNanosPerMilli;
    assembler.Add(what % 4 == 0 ? input.Take(input.Byte()) : Built(input), nowNs);
  }
  assembler.Flush();
  if (assembler.Counters().framesWhole < delivered) std::abort();
  return 0;
}
