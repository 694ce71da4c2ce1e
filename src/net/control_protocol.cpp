#include "net/control_protocol.h"

#include <array>

namespace Veldrift {

namespace {

// A command that is one opcode byte and nothing else.
constexpr PayloadShape Bare(uint8_t opcode) { return {opcode, 0, false, nullptr, nullptr}; }

constexpr PayloadShape Fixed(uint8_t opcode, uint8_t bytes, const char* truncated) {
  return {opcode, bytes, false, truncated, nullptr};
}

constexpr std::array kCommands = {
    Bare(kRequestIdr),
    Fixed(kSetBitrate, 4, "control: truncated SetBitrate"),
    Fixed(kReceiverReport, 24, "control: truncated ReceiverReport"),
    Fixed(kSetGopMode, 1, "control: truncated SetGopMode"),
    Fixed(kSetCodec, 1, "control: truncated SetCodec"),
    Fixed(kSetMaxResolution, 2, "control: truncated SetMaxResolution"),
    Fixed(kSetEncoderMode, 2, "control: truncated SetEncoderMode"),
    Fixed(kSetAutoMode, 4, "control: truncated 0x0A (retired)"),
    Fixed(kSetHardFrameCap, 4, "control: truncated SetHardFrameCap"),
    Fixed(kSetCongestionController, 1, "control: truncated 0x0C (retired)"),
    Fixed(kReceiverReportV2, 32, "control: truncated ReceiverReportV2"),
    Fixed(kSetPlaybackPrefer, 1, "control: truncated 0x10 (retired)"),
    Fixed(kSetMode, 1, "control: truncated SetMode"),
    Fixed(kSetMaxLatency, 2, "control: truncated SetMaxLatency"),
    PayloadShape{kSetEncoderEngine, 1, true, "control: truncated SetEncoderEngine len",
                 "control: truncated SetEncoderEngine body"},
    Fixed(kAppTelemetry, 10, "control: truncated AppTelemetry"),
    Fixed(kSetTransitionMode, 1, "control: truncated SetTransitionMode"),
    PayloadShape{kAppSettingsSnapshot, 6, true, "control: truncated AppSettingsSnapshot head",
                 "control: truncated AppSettingsSnapshot tail"},
    Fixed(kSetFullQualityWhenPaused, 1, "control: truncated SetFullQualityWhenPaused"),
    Bare(0x20),
    Bare(0x21),
    Bare(0x22),
    Bare(0x23),
    Bare(0x24),
    Bare(0x25),
    Bare(0x26),
    Bare(0x27),
    Bare(0x28),
    Bare(0x29),
    PayloadShape{kTestMarker, 1, true, "control: truncated TestMarker len",
                 "control: truncated TestMarker body"},
};

constexpr PayloadShape Status(uint8_t opcode, uint8_t headBytes, bool countedTail = false) {
  return {opcode, headBytes, countedTail, nullptr, nullptr};
}

constexpr std::array kStatuses = {
    Status(kStreamInfo, 10),        Status(kHeartbeat, 0),
    Status(kCommandAck, 1),         Status(kSourceChanged, 8),
    Status(kPlaybackState, 1),      Status(kPairChallenge, 0),
    Status(kPairAccepted, 1, true), Status(kPairRejected, 0),
    Status(kTransmitState, 1),      Status(kHostPlatform, 2),
    Status(kEncoderInfo, 1, true),  Status(kEncoderEngineList, 1, true),
    Status(kAudioState, 1),
};

template <size_t N>
const PayloadShape* Find(const std::array<PayloadShape, N>& shapes, uint8_t opcode) {
  for (const PayloadShape& shape : shapes) {
    if (shape.opcode == opcode) return &shape;
  }
  return nullptr;
}

}  // namespace

const PayloadShape* CommandShape(uint8_t opcode) { return Find(kCommands, opcode); }

const PayloadShape* StatusShape(uint8_t opcode) { return Find(kStatuses, opcode); }

bool AllowedBeforePairing(uint8_t opcode) {
  constexpr uint64_t kAllowed = uint64_t{1} << kHeartbeat | uint64_t{1} << kPairChallenge |
                                uint64_t{1} << kPairAccepted | uint64_t{1} << kPairRejected;
  return opcode < kTransmitState && (kAllowed >> opcode & 1) != 0;
}

}  // namespace Veldrift
