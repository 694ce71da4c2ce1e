// The control connection's messages: an opcode byte and its payload, whose length follows from the
// opcode alone or from a length byte in the payload. docs/protocol.md tells them to people who
// write receivers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Veldrift {

// From the phone, while it pairs.
inline constexpr uint8_t kClientHello = 0x30;
inline constexpr uint8_t kPairingCode = 0x32;
inline constexpr size_t kMaxHelloId = 64;
inline constexpr size_t kMaxHelloName = 128;
inline constexpr size_t kMaxHelloToken = 128;
inline constexpr size_t kPairingCodeDigits = 6;

// From the phone, after pairing.
inline constexpr uint8_t kRequestIdr = 0x01;
inline constexpr uint8_t kSetBitrate = 0x02;
inline constexpr uint8_t kReceiverReport = 0x03;
inline constexpr uint8_t kSetGopMode = 0x04;
inline constexpr uint8_t kSetCodec = 0x05;
inline constexpr uint8_t kSetMaxResolution = 0x07;
inline constexpr uint8_t kSetEncoderMode = 0x08;
inline constexpr uint8_t kSetAutoMode = 0x0A;
inline constexpr uint8_t kSetHardFrameCap = 0x0B;
inline constexpr uint8_t kSetCongestionController = 0x0C;
inline constexpr uint8_t kReceiverReportV2 = 0x0E;
inline constexpr uint8_t kSetPlaybackPrefer = 0x10;
inline constexpr uint8_t kSetMode = 0x11;
inline constexpr uint8_t kSetMaxLatency = 0x12;
inline constexpr uint8_t kSetEncoderEngine = 0x13;
inline constexpr uint8_t kAppTelemetry = 0x14;
inline constexpr uint8_t kSetTransitionMode = 0x15;
inline constexpr uint8_t kAppSettingsSnapshot = 0x18;
inline constexpr uint8_t kSetFullQualityWhenPaused = 0x19;
inline constexpr uint8_t kHostCommandFirst = 0x20;
inline constexpr uint8_t kHostCommandLast = 0x29;
inline constexpr uint8_t kTestMarker = 0x40;

// To the phone.
inline constexpr uint8_t kStreamInfo = 0x06;
inline constexpr uint8_t kHeartbeat = 0x09;
inline constexpr uint8_t kCommandAck = 0x0F;
inline constexpr uint8_t kSourceChanged = 0x16;
inline constexpr uint8_t kPlaybackState = 0x1A;
inline constexpr uint8_t kPairChallenge = 0x31;
inline constexpr uint8_t kPairAccepted = 0x33;
inline constexpr uint8_t kPairRejected = 0x34;
inline constexpr uint8_t kTransmitState = 0x35;
inline constexpr uint8_t kHostPlatform = 0x36;
inline constexpr uint8_t kEncoderInfo = 0x37;
inline constexpr uint8_t kEncoderEngineList = 0x38;
inline constexpr uint8_t kAudioState = 0x39;

// How a message's payload is laid out: `headBytes` first; if `countedTail`, the last byte of the
// head counts the bytes that follow it.
struct PayloadShape {
  uint8_t headBytes = 0;
  bool countedTail = false;
};

// All that is known of one command of the phone after pairing, but what it does.
struct CommandRow {
  uint8_t opcode;
  const char* name;  // as people type it
  PayloadShape shape;
  // What the log says when the connection ends inside the payload.
  const char* truncatedHead = nullptr;
  const char* truncatedTail = nullptr;
  // Each instance answers it with kCommandAck.
  bool acknowledged = false;
  // Not null: still read and acknowledged, and otherwise ignored. Its former name, for the log; ""
  // where the log gives the number alone.
  const char* retired = nullptr;
};

// Every command, in the order of their opcodes.
std::span<const CommandRow> Commands();

// Null: no such opcode, which ends the connection.
const CommandRow* FindCommand(uint8_t opcode);

// The shape of a message to the phone; null: no such opcode.
const PayloadShape* StatusShape(uint8_t opcode);

// The longest payload of either direction.
inline constexpr size_t kMaxControlPayload = 6 + 255;

// Whether a message to the phone may go out before the phone has paired.
bool AllowedBeforePairing(uint8_t opcode);

}  // namespace Veldrift
