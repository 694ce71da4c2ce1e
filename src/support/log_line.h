// The parts that a log line is made of, apart from where it goes.
#pragma once

#include <array>
#include <cstdarg>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/calendar.h"
#include "support/plugin_log.h"

namespace Veldrift {

// Copies `format` without its annotations, cut at 1,023 characters. An annotation stands in braces
// directly behind a percent sign; one without its closing brace swallows the rest.
std::array<char, 1024> StripAnnotations(const char* format);

// Puts a question mark in the place of each control character, so that a text that a stranger
// supplied can't begin a line or move a terminal's cursor, and of each byte that isn't UTF-8, so
// that the log stays a text to those who read it. Changes no length and allocates nothing.
void MakePrintable(std::span<char> text);

// "[time subsystem:category:LEVEL] message\r\n", NUL-terminated, in a buffer of its own; the
// message is made printable, so that this is one line.
struct LogLine {
  std::array<char, 1280> text;
  size_t length = 0;  // 0: it couldn't be formatted
};
LogLine FormatLogLine(const CalendarTime& time, const LogCategory& category, int32_t level,
                      const char* format, va_list arguments);

// The minimum level by the value of VD_LOG_DEBUG.
int32_t MinimumLogLevel(const std::optional<std::string>& debugVariable);

// Appends to the file, whose folders it makes; a file above 4 MiB becomes ".1" before. Failures
// lose the bytes. Not synchronised.
void AppendRotating(const std::filesystem::path& path, std::string_view bytes);

}  // namespace Veldrift
