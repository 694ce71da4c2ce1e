#include "net/control_protocol.h"

#include <algorithm>
#include <array>

namespace Veldrift {

namespace {

constexpr PayloadShape Fixed(uint8_t bytes) { return {bytes, false}; }
constexpr PayloadShape Counted(uint8_t headBytes) { return {headBytes, true}; }
constexpr bool kAcknowledged = true;
constexpr bool kUnanswered = false;

// A command without payload that goes to the host application.
constexpr CommandRow HostKey(uint8_t index, const char* name) {
  return {uint8_t(kHostCommandFirst + index), name, {}};
}

constexpr std::array kCommands = std::to_array<CommandRow>({
    {kRequestIdr, "request-idr", {}},
    {kSetBitrate, "set-bitrate", Fixed(4), "control: truncated SetBitrate", nullptr, kAcknowledged,
     "SetBitrate"},
    {kReceiverReport, "receiver-report", Fixed(24), "control: truncated ReceiverReport", nullptr,
     kUnanswered},
    {kSetGopMode, "set-gop", Fixed(1), "control: truncated SetGopMode", nullptr, kAcknowledged},
    {kSetCodec, "set-codec", Fixed(1), "control: truncated SetCodec", nullptr, kAcknowledged},
    {kSetMaxResolution, "set-max-resolution", Fixed(2), "control: truncated SetMaxResolution",
     nullptr, kAcknowledged},
    {kSetEncoderMode, "set-encoder-mode", Fixed(2), "control: truncated SetEncoderMode", nullptr,
     kAcknowledged},
    {kSetAutoMode, "set-auto-mode", Fixed(4), "control: truncated 0x0A (retired)", nullptr,
     kUnanswered, "SetAutoMode"},
    {kSetHardFrameCap, "set-hard-frame-cap", Fixed(4), "control: truncated SetHardFrameCap",
     nullptr, kAcknowledged, "SetHardFrameCap"},
    {kSetCongestionController, "set-congestion-controller", Fixed(1),
     "control: truncated 0x0C (retired)", nullptr, kUnanswered, "SetCongestionController"},
    {kReceiverReportV2, "receiver-report-v2", Fixed(32), "control: truncated ReceiverReportV2",
     nullptr, kUnanswered},
    {kSetPlaybackPrefer, "set-playback-prefer", Fixed(1), "control: truncated 0x10 (retired)",
     nullptr, kUnanswered, "SetPlaybackPrefer"},
    {kSetMode, "set-mode", Fixed(1), "control: truncated SetMode", nullptr, kUnanswered, ""},
    {kSetMaxLatency, "set-max-latency", Fixed(2), "control: truncated SetMaxLatency", nullptr,
     kUnanswered, ""},
    {kSetEncoderEngine, "set-engine", Counted(1), "control: truncated SetEncoderEngine len",
     "control: truncated SetEncoderEngine body", kAcknowledged},
    {kAppTelemetry, "app-telemetry", Fixed(10), "control: truncated AppTelemetry", nullptr,
     kUnanswered, ""},
    {kSetTransitionMode, "set-transition-mode", Fixed(1), "control: truncated SetTransitionMode",
     nullptr, kUnanswered, ""},
    {kAppSettingsSnapshot, "settings-snapshot", Counted(6),
     "control: truncated AppSettingsSnapshot head", "control: truncated AppSettingsSnapshot tail",
     kUnanswered},
    {kSetFullQualityWhenPaused, "set-full-quality-when-paused", Fixed(1),
     "control: truncated SetFullQualityWhenPaused", nullptr, kUnanswered, ""},
    HostKey(0, "play"),
    HostKey(1, "step-forward"),
    HostKey(2, "step-back"),
    HostKey(3, "jump-forward"),
    HostKey(4, "jump-back"),
    HostKey(5, "go-to-in"),
    HostKey(6, "go-to-out"),
    HostKey(7, "shuttle-back"),
    HostKey(8, "shuttle-stop"),
    HostKey(9, "shuttle-forward"),
    {kTestMarker, "test-marker", Counted(1), "control: truncated TestMarker len",
     "control: truncated TestMarker body"},
});

struct StatusRow {
  uint8_t opcode;
  PayloadShape shape;
};

constexpr std::array kStatuses = std::to_array<StatusRow>({
    {kStreamInfo, Fixed(10)},
    {kHeartbeat, {}},
    {kCommandAck, Fixed(1)},
    {kSourceChanged, Fixed(8)},
    {kPlaybackState, Fixed(1)},
    {kPairChallenge, {}},
    {kPairAccepted, Counted(1)},
    {kPairRejected, {}},
    {kTransmitState, Fixed(1)},
    {kHostPlatform, Fixed(2)},
    {kEncoderInfo, Counted(1)},
    {kEncoderEngineList, Counted(1)},
    {kAudioState, Fixed(1)},
});

}  // namespace

std::span<const CommandRow> Commands() { return kCommands; }

const CommandRow* FindCommand(uint8_t opcode) {
  const auto found = std::ranges::find(kCommands, opcode, &CommandRow::opcode);
  return found == kCommands.end() ? nullptr : &*found;
}

const PayloadShape* StatusShape(uint8_t opcode) {
  const auto found = std::ranges::find(kStatuses, opcode, &StatusRow::opcode);
  return found == kStatuses.end() ? nullptr : &found->shape;
}

bool AllowedBeforePairing(uint8_t opcode) {
  constexpr uint64_t kAllowed = uint64_t{1} << kHeartbeat | uint64_t{1} << kPairChallenge |
                                uint64_t{1} << kPairAccepted | uint64_t{1} << kPairRejected;
  return opcode < kTransmitState && (kAllowed >> opcode & 1) != 0;
}

}  // namespace Veldrift
