#include "tools/receiver/pairing_log.h"

#include <algorithm>
#include <cctype>
#include <fstream>
#include <utility>

#include "net/control_protocol.h"
#include "support/log_line.h"

namespace Veldrift {

namespace {

constexpr std::string_view kNetwork = "network";
constexpr std::string_view kChallenge = "pair: challenge=";
constexpr std::string_view kFor = " for ";
constexpr std::string_view kPaired = "pair: OK id=";
constexpr std::string_view kName = " name=";
constexpr std::string_view kTrusted = "pair: trusted reconnect id=";
constexpr std::string_view kReadLoopExit = "control read loop exit fd=";
constexpr std::string_view kPeerCleared = "peer cleared";

uintmax_t SizeOf(const std::filesystem::path& file) {
  std::error_code failed;
  const uintmax_t size = std::filesystem::file_size(file, failed);
  return failed ? 0 : size;
}

std::string ReadFrom(const std::filesystem::path& file, uintmax_t offset) {
  std::ifstream stream(file, std::ios::binary);
  stream.seekg(std::streamoff(offset));
  return {std::istreambuf_iterator<char>(stream), {}};
}

// "123456 for NAME"
std::optional<PhoneEvent> CodeIn(std::string_view rest) {
  const std::string_view code = rest.substr(0, kPairingCodeDigits);
  rest.remove_prefix(code.size());
  const bool digits =
      code.size() == kPairingCodeDigits &&
      std::all_of(code.begin(), code.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
  if (!digits || !rest.starts_with(kFor)) return std::nullopt;
  return PhoneEvent{PhoneEvent::Kind::Code, std::string(code),
                    std::string(rest.substr(kFor.size()))};
}

}  // namespace

std::optional<LogEntry> ParseLogLine(std::string_view line) {
  const size_t end = line.find("] ");
  if (!line.starts_with('[') || end == line.npos) return std::nullopt;
  const std::string_view head = line.substr(1, end - 1);
  const size_t level = head.rfind(':');
  if (level == head.npos || level == 0) return std::nullopt;
  const size_t category = head.rfind(':', level - 1);
  if (category == head.npos) return std::nullopt;
  return LogEntry{std::string(head.substr(category + 1, level - category - 1)),
                  std::string(line.substr(end + 2)), std::string(head.substr(level + 1))};
}

LogTail::LogTail(std::filesystem::path file) : file_(std::move(file)), read_(SizeOf(file_)) {}

std::vector<LogEntry> LogTail::Take() {
  std::vector<LogEntry> entries;
  const uintmax_t size = SizeOf(file_);
  if (size == read_) return entries;
  std::string text = std::exchange(part_, {});
  if (size < read_) {  // rotated: the rest of what it was, and then the new one
    std::filesystem::path old = file_;
    old += ".1";
    text = SizeOf(old) >= read_ ? text + ReadFrom(old, read_) : std::string();
    read_ = 0;
  }
  const std::string fresh = ReadFrom(file_, read_);
  read_ += fresh.size();
  text += fresh;
  size_t begin = 0;
  for (size_t end = text.find('\n'); end != text.npos; end = text.find('\n', begin)) {
    std::string_view line = std::string_view(text).substr(begin, end - begin);
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (auto entry = ParseLogLine(line)) entries.push_back(std::move(*entry));
    begin = end + 1;
  }
  part_ = text.substr(begin);
  return entries;
}

std::optional<PhoneEvent> PhoneEventIn(const LogEntry& entry) {
  using Kind = PhoneEvent::Kind;
  const std::string_view message = entry.message;
  if (entry.category != kNetwork) return std::nullopt;
  if (message.starts_with(kChallenge)) return CodeIn(message.substr(kChallenge.size()));
  if (message.starts_with(kTrusted)) return PhoneEvent{Kind::Paired, {}, {}};
  if (message.starts_with(kPaired)) {
    const size_t name = message.find(kName);
    return PhoneEvent{Kind::Paired,
                      {},
                      std::string(name == message.npos ? "" : message.substr(name + kName.size()))};
  }
  if (message.starts_with(kReadLoopExit) && message.ends_with(kPeerCleared)) {
    return PhoneEvent{Kind::Gone, {}, {}};
  }
  return std::nullopt;
}

std::string NameInLog(std::string name) {
  name.resize(std::min(name.size(), kMaxHelloName));
  MakePrintable({name.data(), name.size()});
  return name;
}

PairingCodeLog::PairingCodeLog(std::filesystem::path file, std::string phoneName)
    : log_(std::move(file)), name_(NameInLog(std::move(phoneName))) {}

std::optional<std::string> PairingCodeLog::Find() {
  for (const LogEntry& entry : log_.Take()) {
    const std::optional<PhoneEvent> event = PhoneEventIn(entry);
    if (event && event->kind == PhoneEvent::Kind::Code && event->name == name_) {
      newest_ = event->code;
    }
  }
  return newest_;
}

}  // namespace Veldrift
