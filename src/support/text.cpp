#include "support/text.h"

#include <algorithm>
#include <cstdint>

namespace Veldrift {
namespace {

bool IsContinuation(char c) { return (static_cast<uint8_t>(c) & 0xC0) == 0x80; }

}  // namespace

std::string LowerCase(std::string_view text) {
  std::string lowered(text);
  std::ranges::transform(lowered, lowered.begin(), [](char c) { return LowerCase(c); });
  return lowered;
}

size_t Utf8CharacterLength(std::string_view text) {
  const auto first = static_cast<uint8_t>(text[0]);
  if (first < 0x80) return 1;
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  if (!std::ranges::all_of(text.substr(1, length - 1), IsContinuation)) return 0;
  const auto second = static_cast<uint8_t>(text[1]);
  const bool wrong = (first == 0xE0 && second < 0xA0) ||  // longer than need be
                     (first == 0xED && second > 0x9F) ||  // halves of a pair
                     (first == 0xF0 && second < 0x90) ||  // longer than need be
                     (first == 0xF4 && second > 0x8F);    // beyond the last character
  return wrong ? 0 : length;
}

std::string MendUtf8(std::string_view text) {
  std::string mended;
  while (!text.empty()) {
    const size_t length = Utf8CharacterLength(text);
    mended += length == 0 ? "\xEF\xBF\xBD" : text.substr(0, length);
    text.remove_prefix(length == 0 ? 1 : length);
    while (length == 0 && !text.empty() && IsContinuation(text[0])) text.remove_prefix(1);
  }
  return mended;
}

}  // namespace Veldrift
