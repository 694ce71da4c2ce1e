#include "tools/receiver/commands.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "net/control_protocol.h"
#include "support/little_endian.h"

namespace Veldrift {

namespace {

struct NamedOpcode {
  const char* name;
  uint8_t opcode;
};
constexpr std::array kNames = std::to_array<NamedOpcode>({
    {"request-idr", kRequestIdr},
    {"set-bitrate", kSetBitrate},
    {"receiver-report", kReceiverReport},
    {"set-gop", kSetGopMode},
    {"set-codec", kSetCodec},
    {"set-max-resolution", kSetMaxResolution},
    {"set-encoder-mode", kSetEncoderMode},
    {"set-auto-mode", kSetAutoMode},
    {"set-hard-frame-cap", kSetHardFrameCap},
    {"set-congestion-controller", kSetCongestionController},
    {"receiver-report-v2", kReceiverReportV2},
    {"set-playback-prefer", kSetPlaybackPrefer},
    {"set-mode", kSetMode},
    {"set-max-latency", kSetMaxLatency},
    {"set-engine", kSetEncoderEngine},
    {"app-telemetry", kAppTelemetry},
    {"set-transition-mode", kSetTransitionMode},
    {"settings-snapshot", kAppSettingsSnapshot},
    {"set-full-quality-when-paused", kSetFullQualityWhenPaused},
    {"play", 0x20},
    {"step-forward", 0x21},
    {"step-back", 0x22},
    {"jump-forward", 0x23},
    {"jump-back", 0x24},
    {"go-to-in", 0x25},
    {"go-to-out", 0x26},
    {"shuttle-back", 0x27},
    {"shuttle-stop", 0x28},
    {"shuttle-forward", 0x29},
    {"test-marker", kTestMarker},
});

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
  const auto found = std::ranges::find(kNames, opcode, &NamedOpcode::opcode);
  return found == kNames.end() ? "unknown" : found->name;
}

std::vector<std::string> CommandNames() {
  std::vector<std::string> names;
  for (const NamedOpcode& entry : kNames) names.emplace_back(entry.name);
  return names;
}

std::optional<Command> ParseCommand(std::string_view text, std::string& error) {
  const size_t equals = text.find('=');
  const std::string_view name = text.substr(0, equals);
  const auto found =
      std::ranges::find_if(kNames, [&](const NamedOpcode& entry) { return entry.name == name; });
  if (found == kNames.end()) {
    error = "there is no command " + std::string(name);
    return std::nullopt;
  }
  const PayloadShape& shape = *CommandShape(found->opcode);
  Command command{found->opcode, std::vector<std::byte>(shape.headBytes)};
  if (equals != text.npos) {
    auto payload = ParseHex(text.substr(equals + 1));
    if (!payload || !Fits(shape, *payload)) {
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
