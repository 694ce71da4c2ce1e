// What several layers need to know of texts: ASCII letters, and where UTF-8's characters end.
// Nothing here allocates but what returns a string.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Veldrift {

// The lower-case letter of an ASCII capital; everything else as it is, whatever the locale.
constexpr char LowerCase(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
std::string LowerCase(std::string_view text);

// How many bytes the UTF-8 character at the beginning of `text` has, which isn't empty; 0 if there
// is none: bytes out of place, a character that is cut, one written longer than need be, or one
// that the standard doesn't have.
size_t Utf8CharacterLength(std::string_view text);

// The text with the replacement character in the place of each byte that belongs to no character;
// what is left of one that was cut goes with its beginning.
std::string MendUtf8(std::string_view text);

}  // namespace Veldrift
