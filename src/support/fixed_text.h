// A short text, put together where nothing may be allocated or locked: while the process goes down.
// What doesn't fit is cut.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "platform/calendar.h"

namespace Veldrift {

class FixedText {
 public:
  FixedText& Add(std::string_view text);
  // With leading zeros up to `digits`.
  FixedText& AddDecimal(uint64_t value, size_t digits = 1);
  FixedText& AddHex(uint64_t value, size_t digits = 1);           // 1f
  FixedText& AddUpperCaseHex(uint64_t value, size_t digits = 1);  // 1F
  // "0x" and hexadecimal digits.
  FixedText& AddAddress(uint64_t address) { return Add("0x").AddHex(address); }
  // Year, month and day, then hour, minute and second, with these characters between them:
  // ('-', ' ', ':') gives "2026-01-31 09:05:00".
  FixedText& AddTime(const CalendarTime& time, char inDate, char between, char inTime);

  std::string_view View() const { return {text_.data(), length_}; }
  // To change them in place.
  std::span<char> Characters() { return {text_.data(), length_}; }
  // The text with a NUL behind it.
  const char* CString();

 private:
  FixedText& AddNumber(uint64_t value, size_t digits, unsigned base, const char* figures);

  std::array<char, 512> text_;
  size_t length_ = 0;
};

}  // namespace Veldrift
