#include "tools/receiver/status_message.h"

#include <bit>

#include "net/control_protocol.h"
#include "support/little_endian.h"

namespace Veldrift {

namespace {

std::string TextOf(std::span<const std::byte> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool Is(const StatusMessage& message, uint8_t opcode) {
  const PayloadShape* shape = StatusShape(opcode);
  return message.opcode == opcode && shape != nullptr && message.payload.size() >= shape->headBytes;
}

// Takes a length byte and its text off the front; false if they aren't all there.
bool TakeText(std::span<const std::byte>& bytes, std::string& text) {
  if (bytes.empty()) return false;
  const auto length = std::to_integer<size_t>(bytes[0]);
  if (bytes.size() - 1 < length) return false;
  text = TextOf(bytes.subspan(1, length));
  bytes = bytes.subspan(1 + length);
  return true;
}

}  // namespace

std::string StatusMessage::Text() const {
  if (payload.empty() || (opcode != kPairAccepted && opcode != kEncoderInfo)) return "";
  return TextOf(std::span(payload).subspan(1));
}

std::optional<StreamInfo> ParseStreamInfo(const StatusMessage& message) {
  if (!Is(message, kStreamInfo)) return std::nullopt;
  const std::byte* in = message.payload.data();
  return StreamInfo{GetU16(in), GetU16(in + 2), GetU16(in + 4), GetU32(in + 6)};
}

std::optional<SourceChange> ParseSourceChange(const StatusMessage& message) {
  if (!Is(message, kSourceChanged)) return std::nullopt;
  const std::byte* in = message.payload.data();
  return SourceChange{GetU16(in), GetU16(in + 2), std::bit_cast<float>(GetU32(in + 4))};
}

std::vector<ReportedEngine> ParseEngineList(const StatusMessage& message) {
  std::vector<ReportedEngine> engines;
  if (message.opcode != kEncoderEngineList || message.payload.size() < 2) return engines;
  const auto count = std::to_integer<size_t>(message.payload[1]);
  std::span<const std::byte> rest = std::span(message.payload).subspan(2);
  ReportedEngine entry;
  while (engines.size() < count && TakeText(rest, entry.id) && TakeText(rest, entry.label) &&
         TakeText(rest, entry.note)) {
    engines.push_back(entry);
  }
  return engines;
}

const char* StatusName(uint8_t opcode) {
  switch (opcode) {
    case kStreamInfo:
      return "StreamInfo";
    case kHeartbeat:
      return "Heartbeat";
    case kCommandAck:
      return "CommandAck";
    case kSourceChanged:
      return "SourceChanged";
    case kPlaybackState:
      return "PlaybackState";
    case kPairChallenge:
      return "PairChallenge";
    case kPairAccepted:
      return "PairAccepted";
    case kPairRejected:
      return "PairRejected";
    case kTransmitState:
      return "TransmitState";
    case kHostPlatform:
      return "HostPlatform";
    case kEncoderInfo:
      return "EncoderInfo";
    case kEncoderEngineList:
      return "EncoderEngineList";
    case kAudioState:
      return "AudioState";
    default:
      return "unknown";
  }
}

MessageRead ReadStatusMessage(const ExactReader& read, StatusMessage& message) {
  std::byte opcode{};
  message.payload.clear();
  if (!read({&opcode, 1})) return MessageRead::Ended;
  message.opcode = std::to_integer<uint8_t>(opcode);
  const PayloadShape* shape = StatusShape(message.opcode);
  if (shape == nullptr) return MessageRead::UnknownOpcode;
  message.payload.resize(shape->headBytes);
  if (shape->headBytes > 0 && !read(message.payload)) return MessageRead::Truncated;
  const size_t tail = shape->countedTail ? std::to_integer<size_t>(message.payload.back()) : 0;
  message.payload.resize(shape->headBytes + tail);
  if (tail > 0 && !read(std::span(message.payload).subspan(shape->headBytes))) {
    return MessageRead::Truncated;
  }
  return MessageRead::Message;
}

}  // namespace Veldrift
