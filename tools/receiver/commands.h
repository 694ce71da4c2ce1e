// The phone's commands, by name and ready to send. docs/protocol.md has their payloads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Veldrift {

struct Command {
  uint8_t opcode = 0;
  std::vector<std::byte> payload;
};

// "set-codec" and the like; "unknown" if the opcode is no command.
const char* CommandName(uint8_t opcode);

// The names of all commands, in the order of their opcodes.
std::vector<std::string> CommandNames();

// A command from "NAME" (its payload is zeros) or "NAME=HEX". Nothing, and a reason in `error`, if
// there is none of that name or its payload can't have these bytes.
std::optional<Command> ParseCommand(std::string_view text, std::string& error);

// Of longer texts, the first 255 bytes are sent.
Command EngineCommand(std::string_view id);
Command MarkerCommand(std::string_view text);
Command MaxResolutionCommand(uint16_t shortSide);

// All settings in one message, as an app sends them when it connects.
struct SettingsSnapshot {
  uint16_t maxShortSide = 0;
  uint8_t codec = 0;
  uint8_t gopMode = 0;
  uint8_t encoderMode = 0;
  std::string engine;  // empty: none
};
Command SnapshotCommand(const SettingsSnapshot& settings);

}  // namespace Veldrift
