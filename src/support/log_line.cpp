#include "support/log_line.h"

#include <algorithm>
#include <cstdio>
#include <system_error>

#include "platform/file.h"
#include "support/text.h"

namespace Veldrift {
namespace {

constexpr uintmax_t kRotateAboveBytes = 4'194'304;

const char* LevelWord(int32_t level) {
  switch (level) {
    case kLogDebug:
      return "DEBUG";
    case kLogInfo:
      return "INFO";
    case kLogError:
      return "ERROR";
    case kLogFault:
      return "FAULT";
    default:
      return "LOG";
  }
}

const char* TextOr(const char* text, const char* fallback) {
  return text == nullptr ? fallback : text;
}

// A file that can't be moved aside is lost rather than allowed to grow without end.
void Rotate(const std::filesystem::path& path) {
  std::filesystem::path old = path;
  old += ".1";
  std::error_code ignored;
  std::error_code error;
  std::filesystem::remove(old, ignored);
  std::filesystem::rename(path, old, error);
  if (error) std::filesystem::remove(path, ignored);
}

// The length of the character at the beginning of the text, which isn't empty; 0 if its first byte
// is none that may stand in a line.
size_t PrintableLength(std::string_view text) {
  const size_t length = Utf8CharacterLength(text);
  const auto byte = [&](size_t at) { return static_cast<uint8_t>(text[at]); };
  const bool control = (length == 1 && (byte(0) < 0x20 || byte(0) == 0x7F)) ||
                       (length == 2 && byte(0) == 0xC2 && byte(1) < 0xA0);
  return control ? 0 : length;
}

}  // namespace

std::array<char, 1024> StripAnnotations(const char* format) {
  std::array<char, 1024> stripped;
  size_t count = 0;
  const char* at = format;
  while (*at != '\0' && count < stripped.size() - 1) {
    stripped[count++] = *at++;
    if (at[-1] == '%' && *at == '{') {
      while (*at != '\0' && *at != '}') ++at;
      if (*at == '}') ++at;
    }
  }
  stripped[count] = '\0';
  return stripped;
}

void MakePrintable(std::span<char> text) {
  for (size_t at = 0; at < text.size();) {
    const size_t length = PrintableLength({text.data() + at, text.size() - at});
    if (length == 0) text[at] = '?';
    at += std::max<size_t>(length, 1);
  }
}

LogLine FormatLogLine(const CalendarTime& time, const LogCategory& category, int32_t level,
                      const char* format, va_list arguments) {
  LogLine line;
  const auto stripped = StripAnnotations(format);
  std::array<char, 1024> message;
  const int messageLength =
      std::vsnprintf(message.data(), message.size(), stripped.data(), arguments);
  if (messageLength < 0) return line;
  const auto kept = std::min(static_cast<size_t>(messageLength), message.size() - 1);
  MakePrintable({message.data(), kept});

  char stamp[32];
  std::snprintf(stamp, sizeof stamp, "%04u-%02u-%02u %02u:%02u:%02u.%03u",
                static_cast<unsigned>(time.year), static_cast<unsigned>(time.month),
                static_cast<unsigned>(time.day), static_cast<unsigned>(time.hour),
                static_cast<unsigned>(time.minute), static_cast<unsigned>(time.second),
                static_cast<unsigned>(time.millisecond));
  const int length =
      std::snprintf(line.text.data(), line.text.size(), "[%s %s:%s:%s] %.*s\r\n", stamp,
                    TextOr(category.subsystem, "?"), TextOr(category.category, "?"),
                    LevelWord(level), static_cast<int>(kept), message.data());
  if (length >= 1) line.length = std::min(static_cast<size_t>(length), line.text.size() - 1);
  return line;
}

int32_t MinimumLogLevel(const std::optional<std::string>& debugVariable) {
  return debugVariable == "1" ? kLogDebug : kLogInfo;
}

void AppendRotating(const std::filesystem::path& path, std::string_view bytes) {
  std::error_code error;
  std::filesystem::create_directories(path.parent_path(), error);
  const uintmax_t size = std::filesystem::file_size(path, error);
  if (!error && size > kRotateAboveBytes) Rotate(path);
  AppendToFile(path, bytes);
}

}  // namespace Veldrift
