#include "tools/receiver/commands.h"

#include <algorithm>
#include <charconv>

#include "net/control_protocol.h"
#include "support/little_endian.h"

namespace Veldrift {

namespace {

constexpr size_t kLongestText = 255;

std::optional<std::vector<std::byte>> ParseHex(std::string_view hex) {
  std::vector<std::byte> bytes(hex.size() / 2);
  if (hex.size() % 2 != 0) return std::nullopt;
  for (size_t i = 0; i < bytes.size(); ++i) {
    uint8_t value = 0;
    const char* end = hex.data() + 2 * i + 2;
    if (std::from_chars(end - 2, end, value, 16).ptr != end) return std::nullopt;
    bytes[i] = std::byte(value);
  }
  return bytes;
}

// The plug-in reads just as many bytes as the shape says: any other number would be taken for the
// next command.
bool Fits(const PayloadShape& shape, const std::vector<std::byte>& payload) {
  if (!shape.countedTail) return payload.size() == shape.headBytes;
  return payload.size() >= shape.headBytes &&
         payload.size() ==
             shape.headBytes + std::to_integer<size_t>(payload[size_t(shape.headBytes) - 1]);
}

void AppendCounted(std::vector<std::byte>& payload, std::string_view text) {
  text = text.substr(0, kLongestText);
  payload.push_back(std::byte(text.size()));
  for (const char c : text) payload.push_back(std::byte(c));
}

Command Counted(uint8_t opcode, std::string_view text) {
  Command command{opcode, {}};
  AppendCounted(command.payload, text);
  return command;
}

}  // namespace

const char* CommandName(uint8_t opcode) {
  const CommandRow* row = FindCommand(opcode);
  return row == nullptr ? "unknown" : row->name;
}

std::vector<std::string> CommandNames() {
  std::vector<std::string> names;
  for (const CommandRow& row : Commands()) names.emplace_back(row.name);
  return names;
}

std::optional<Command> ParseCommand(std::string_view text, std::string& error) {
  const size_t equals = text.find('=');
  const std::string_view name = text.substr(0, equals);
  const auto row =
      std::ranges::find_if(Commands(), [&](const CommandRow& one) { return one.name == name; });
  if (row == Commands().end()) {
    error = "there is no command " + std::string(name);
    return std::nullopt;
  }
  Command command{row->opcode, std::vector<std::byte>(row->shape.headBytes)};
  if (equals != text.npos) {
    auto payload = ParseHex(text.substr(equals + 1));
    if (!payload || !Fits(row->shape, *payload)) {
      error = std::string(name) + " can't have the payload " + std::string(text.substr(equals + 1));
      return std::nullopt;
    }
    command.payload = std::move(*payload);
  }
  return command;
}

Command EngineCommand(std::string_view id) { return Counted(kSetEncoderEngine, id); }

Command MarkerCommand(std::string_view text) { return Counted(kTestMarker, text); }

Command MaxResolutionCommand(uint16_t shortSide) {
  Command command{kSetMaxResolution, std::vector<std::byte>(2)};
  PutU16(command.payload.data(), shortSide);
  return command;
}

Command SnapshotCommand(const SettingsSnapshot& settings) {
  Command command{kAppSettingsSnapshot, std::vector<std::byte>(2)};
  PutU16(command.payload.data(), settings.maxShortSide);
  for (const uint8_t value : {settings.codec, settings.gopMode, settings.encoderMode}) {
    command.payload.push_back(std::byte(value));
  }
  AppendCounted(command.payload, settings.engine);
  return command;
}

}  // namespace Veldrift
