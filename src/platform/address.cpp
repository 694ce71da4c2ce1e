#include <array>
#include <bit>
#include <cstring>

#include "platform/socket.h"

namespace Veldrift {
namespace {

// One number of an address, 0 to 255 in at most three digits; moves `text` behind it.
std::optional<uint8_t> TakeNumber(std::string_view& text) {
  unsigned value = 0;
  size_t digits = 0;
  while (digits < text.size() && digits < 3 && text[digits] >= '0' && text[digits] <= '9') {
    value = value * 10 + static_cast<unsigned>(text[digits] - '0');
    ++digits;
  }
  if (digits == 0 || value > 255) return std::nullopt;
  text.remove_prefix(digits);
  return static_cast<uint8_t>(value);
}

}  // namespace

std::string AddressText(uint32_t address) {
  const auto bytes = std::bit_cast<std::array<uint8_t, 4>>(address);
  std::string text = std::to_string(bytes[0]);
  for (size_t i = 1; i < 4; ++i) text += "." + std::to_string(bytes[i]);
  return text;
}

std::optional<uint32_t> ParseAddress(const std::string& text) {
  std::string_view rest = text;
  std::array<uint8_t, 4> bytes{};
  for (size_t i = 0; i < 4; ++i) {
    if (i > 0) {
      if (!rest.starts_with('.')) return std::nullopt;
      rest.remove_prefix(1);
    }
    const auto number = TakeNumber(rest);
    if (!number) return std::nullopt;
    bytes[i] = *number;
  }
  if (!rest.empty()) return std::nullopt;
  return std::bit_cast<uint32_t>(bytes);
}

}  // namespace Veldrift
