// A short text, put together where nothing may be allocated or locked: in a signal handler. What
// doesn't fit is cut.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "platform/system.h"

namespace Veldrift {

class SignalText {
 public:
  SignalText& Add(std::string_view text);
  // With leading zeros up to `digits`.
  SignalText& AddDecimal(uint64_t value, size_t digits = 1);
  SignalText& AddHex(uint64_t value, size_t digits = 1);           // 1f
  SignalText& AddUpperCaseHex(uint64_t value, size_t digits = 1);  // 1F
  // "0x" and hexadecimal digits.
  SignalText& AddAddress(uint64_t address) { return Add("0x").AddHex(address); }
  // Year, month and day, then hour, minute and second, with these characters between them:
  // ('-', ' ', ':') gives "2026-01-31 09:05:00".
  SignalText& AddTime(const CalendarTime& time, char inDate, char between, char inTime);

  std::string_view View() const { return {text_.data(), length_}; }
  // The text with a NUL behind it.
  const char* CString();

 private:
  SignalText& AddNumber(uint64_t value, size_t digits, unsigned base, const char* figures);

  std::array<char, 512> text_;
  size_t length_ = 0;
};

// The calendar's view of a time given in seconds since 1970, by arithmetic alone.
CalendarTime CalendarTimeOf(int64_t seconds, int millisecond);

}  // namespace Veldrift
