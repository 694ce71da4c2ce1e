// Anything in place of the plug-in's status messages.
#include <cstdlib>
#include <cstring>

#include "net/control_protocol.h"
#include "tools/receiver/status_message.h"

using namespace Veldrift;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::span<const std::byte> rest = std::as_bytes(std::span(data, size));
  const ExactReader read = [&](std::span<std::byte> out) {
    if (rest.size() < out.size()) return false;
    if (!out.empty()) std::memcpy(out.data(), rest.data(), out.size());
    rest = rest.subspan(out.size());
    return true;
  };
  StatusMessage message;
  while (ReadStatusMessage(read, message) == MessageRead::Message) {
    if (message.payload.size() > kMaxControlPayload) std::abort();
    static_cast<void>(message.Text());
    static_cast<void>(ParseStreamInfo(message));
    static_cast<void>(ParseSourceChange(message));
    if (ParseEngineList(message).size() > kMaxControlPayload) std::abort();
  }
  return 0;
}
