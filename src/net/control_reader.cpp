#include "net/control_reader.h"

#include <array>

#include "net/control_protocol.h"
#include "support/plugin_log.h"

namespace Veldrift {

namespace {

constexpr LogCategory kLog{kLogSubsystem, "network"};

using PayloadBuffer = std::array<std::byte, kMaxControlPayload>;

// Reads the command's payload into `buffer`; its length, or -1 if it was cut off.
std::ptrdiff_t ReadPayload(const ExactRead& read, const CommandRow& command,
                           PayloadBuffer& buffer) {
  const std::span<std::byte> all(buffer);
  const size_t head = command.shape.headBytes;
  if (head == 0) return 0;
  if (!read(all.first(head))) {
    PluginLog(kLog, kLogInfo, "%s", command.truncatedHead);
    return -1;
  }
  const size_t tail = command.shape.countedTail ? std::to_integer<size_t>(buffer[head - 1]) : 0;
  if (tail > 0 && !read(all.subspan(head, tail))) {
    PluginLog(kLog, kLogInfo, "%s", command.truncatedTail);
    return -1;
  }
  return std::ptrdiff_t(head + tail);
}

}  // namespace

void RunControlReadLoop(const ExactRead& read, const CommandHandler& handler,
                        const std::atomic<bool>& running) {
  PayloadBuffer buffer;
  while (running) {
    std::byte opcodeByte{};
    if (!read({&opcodeByte, 1})) {
      PluginLog(kLog, kLogInfo, "control: client disconnected");
      return;
    }
    const uint8_t opcode = std::to_integer<uint8_t>(opcodeByte);
    const CommandRow* command = FindCommand(opcode);
    if (command == nullptr) {
      PluginLog(kLog, kLogInfo, "control: unknown opcode 0x%02x — dropping client", opcode);
      return;
    }
    const std::ptrdiff_t length = ReadPayload(read, *command, buffer);
    if (length < 0) return;
    if (!handler) continue;
    handler(opcode, length == 0 ? std::span<const std::byte>()
                                : std::span<const std::byte>(buffer.data(), size_t(length)));
  }
}

}  // namespace Veldrift
