// Texts of any length for QR codes, and what the versions hold.
#pragma once

#include <array>
#include <string>

namespace Veldrift {

// The most bytes that each version takes, from version 1: the standard's capacity at level H, less
// one byte where fewer than 7 bits would be left.
inline constexpr std::array<size_t, 40> kMostBytes = {
    6,   13,  23,  33,  43,  57,  63,  83,   97,   118,  136,  154, 176, 193,
    219, 249, 279, 309, 337, 381, 402, 438,  460,  510,  534,  592, 624, 657,
    697, 741, 789, 841, 897, 957, 982, 1050, 1092, 1138, 1218, 1272};

// Small letters, in an order that repeats after 26.
inline std::string Letters(size_t bytes) {
  std::string text;
  for (size_t i = 0; i < bytes; ++i) text += char('a' + i * 7 % 26);
  return text;
}

// Every second character takes two bytes; the last byte may be half a character.
inline std::string Utf8(size_t bytes) {
  std::string text;
  for (size_t i = 0; text.size() < bytes; ++i) text += i % 2 == 0 ? "\u00FC" : "r";
  text.resize(bytes);
  return text;
}

// Every byte value, with neither order nor repetition.
inline std::string Binary(size_t bytes) {
  std::string text;
  uint32_t state = uint32_t(bytes);
  for (size_t i = 0; i < bytes; ++i) {
    state = state * 1664525 + 1013904223;
    text += char(state >> 24);
  }
  return text;
}

}  // namespace Veldrift
