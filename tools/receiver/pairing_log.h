// What the plug-in's log tells of phones that come and go, and of their codes, where no screen
// shows them. A line counts only from its head on: what a phone calls itself stands behind it and
// can't pass for a line.
//
// Threads: one thread uses an object.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Veldrift {

// "[time subsystem:category:level] message"
struct LogEntry {
  std::string category;
  std::string message;
  std::string level = {};  // "DEBUG", "INFO", "ERROR" or "FAULT"
};

// Nothing if the line has no such head.
std::optional<LogEntry> ParseLogLine(std::string_view line);

// Whole lines that are written to a log from now on, also while it is rotated.
class LogTail {
 public:
  explicit LogTail(std::filesystem::path file);

  // The lines since the last call, oldest first.
  std::vector<LogEntry> Take();

 private:
  const std::filesystem::path file_;
  uintmax_t read_;    // up to here, of the present file
  std::string part_;  // of a line that is still being written
};

struct PhoneEvent {
  enum class Kind { Code, Paired, Gone };
  Kind kind = Kind::Gone;
  std::string code;  // six digits, where it is a code
  std::string name;  // as the log writes it; empty where it doesn't tell
};

std::optional<PhoneEvent> PhoneEventIn(const LogEntry& entry);

// How the log writes a phone's name: cut as the wire cuts it, and printable.
std::string NameInLog(std::string name);

// Finds the code of one phone's pairing. Challenges of others, and those from before this object
// was made, are left alone.
class PairingCodeLog {
 public:
  PairingCodeLog(std::filesystem::path file, std::string phoneName);

  // The newest code so far; nothing yet if there is none.
  std::optional<std::string> Find();

 private:
  LogTail log_;
  const std::string name_;
  std::optional<std::string> newest_;
};

}  // namespace Veldrift
