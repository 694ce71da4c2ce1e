// Anything in place of a paired phone's commands: the read loop hands on only what the protocol
// has, each with the length that belongs to it, and ends.
#include <algorithm>
#include <cstdlib>

#include "net/control_protocol.h"
#include "net/control_reader.h"

using namespace Veldrift;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::span<const std::byte> rest = std::as_bytes(std::span(data, size));
  const ExactRead read = [&](std::span<std::byte> out) {
    if (rest.size() < out.size()) return false;
    std::copy_n(rest.begin(), out.size(), out.begin());
    rest = rest.subspan(out.size());
    return true;
  };
  const CommandHandler check = [](uint8_t opcode, std::span<const std::byte> payload) {
    const CommandRow* command = FindCommand(opcode);
    if (command == nullptr || payload.size() < command->shape.headBytes) std::abort();
    const size_t head = command->shape.headBytes;
    const size_t tail = command->shape.countedTail ? size_t(payload[head - 1]) : 0;
    if (payload.size() != head + tail) std::abort();
  };
  const std::atomic<bool> running{true};
  RunControlReadLoop(read, check, running);
  return 0;
}
