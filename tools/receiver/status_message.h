// A message of the plug-in to the phone, cut out of the connection's bytes, and what it says.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace Veldrift {

struct StatusMessage {
  uint8_t opcode = 0;
  std::vector<std::byte> payload;  // with its length byte, where the message has one
  int64_t timeNs = 0;              // steady clock at its last byte

  // The text behind the length byte of kPairAccepted and kEncoderInfo; empty for others.
  std::string Text() const;
};

// kStreamInfo: what the host's source is, and the encoder's frame byte cap.
struct StreamInfo {
  int width = 0;
  int height = 0;
  int fps = 0;
  uint32_t frameByteCap = 0;
};
std::optional<StreamInfo> ParseStreamInfo(const StatusMessage& message);

// kSourceChanged.
struct SourceChange {
  int width = 0;
  int height = 0;
  float fps = 0;
};
std::optional<SourceChange> ParseSourceChange(const StatusMessage& message);

// kEncoderEngineList: the entries that are whole. The sender cuts a long list off anywhere.
struct ReportedEngine {
  std::string id, label, note;
};
std::vector<ReportedEngine> ParseEngineList(const StatusMessage& message);

// The message's name as docs/protocol.md has it.
const char* StatusName(uint8_t opcode);

// Reads exactly `out.size()` bytes; false at the connection's end.
using ExactReader = std::function<bool(std::span<std::byte> out)>;

enum class MessageRead {
  Message,
  Ended,          // between two messages
  Truncated,      // inside a message
  UnknownOpcode,  // in the message's `opcode`; nothing behind it can be read
};

// Reads one message. Its time is the caller's to set.
MessageRead ReadStatusMessage(const ExactReader& read, StatusMessage& message);

}  // namespace Veldrift
