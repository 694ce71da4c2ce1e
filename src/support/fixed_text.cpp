#include "support/fixed_text.h"

#include <algorithm>

namespace Veldrift {

FixedText& FixedText::Add(std::string_view text) {
  const size_t count = std::min(text.size(), text_.size() - 1 - length_);
  std::copy_n(text.data(), count, text_.data() + length_);
  length_ += count;
  return *this;
}

FixedText& FixedText::AddNumber(uint64_t value, size_t digits, unsigned base, const char* figures) {
  char number[24];
  size_t at = sizeof number;
  size_t count = 0;
  do {
    number[--at] = figures[value % base];
    value /= base;
    ++count;
  } while (at > 0 && (value != 0 || count < digits));
  return Add({number + at, count});
}

FixedText& FixedText::AddDecimal(uint64_t value, size_t digits) {
  return AddNumber(value, digits, 10, "0123456789");
}

FixedText& FixedText::AddHex(uint64_t value, size_t digits) {
  return AddNumber(value, digits, 16, "0123456789abcdef");
}

FixedText& FixedText::AddUpperCaseHex(uint64_t value, size_t digits) {
  return AddNumber(value, digits, 16, "0123456789ABCDEF");
}

FixedText& FixedText::AddTime(const CalendarTime& time, char inDate, char between, char inTime) {
  const auto number = [this](int value, size_t digits, char behind) {
    AddDecimal(static_cast<uint64_t>(value), digits).Add({&behind, 1});
  };
  number(time.year, 4, inDate);
  number(time.month, 2, inDate);
  number(time.day, 2, between);
  number(time.hour, 2, inTime);
  number(time.minute, 2, inTime);
  return AddDecimal(static_cast<uint64_t>(time.second), 2);
}

const char* FixedText::CString() {
  text_[length_] = '\0';
  return text_.data();
}

}  // namespace Veldrift
