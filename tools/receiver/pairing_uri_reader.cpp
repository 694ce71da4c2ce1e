#include "tools/receiver/pairing_uri_reader.h"

#include <algorithm>
#include <charconv>

namespace Veldrift {

namespace {

bool IsPlainAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c > ' ' && c < 0x7F; });
}

// Takes `prefix` off the front of `rest`; false if something else stands there.
bool Skip(std::string_view& rest, std::string_view prefix) {
  if (!rest.starts_with(prefix)) return false;
  rest.remove_prefix(prefix.size());
  return true;
}

// What stands in front of the next "&", or everything.
std::string_view TakeValue(std::string_view& rest) {
  const std::string_view value = rest.substr(0, rest.find('&'));
  rest.remove_prefix(value.size());
  return value;
}

std::optional<char> DecodeByte(std::string_view digits) {
  unsigned value = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value, 16);
  if (digits.size() != 2 || error != std::errc() || stop != end) return std::nullopt;
  return char(value);
}

std::optional<std::string> PercentDecode(std::string_view text) {
  std::string decoded;
  for (size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '%') {
      decoded += text[at];
      continue;
    }
    const std::optional<char> byte = DecodeByte(text.substr(at + 1, 2));
    if (!byte) return std::nullopt;
    decoded += *byte;
    at += 2;
  }
  return decoded;
}

// Keys that this version doesn't know. One that it does know makes the text ambiguous.
bool SkipFurtherKeys(std::string_view rest) {
  while (Skip(rest, "&")) {
    const std::string_view pair = TakeValue(rest);
    const std::string_view key = pair.substr(0, pair.find('='));
    if (key.empty() || key.size() == pair.size()) return false;
    if (key == "v" || key == "id" || key == "name") return false;
  }
  return rest.empty();
}

}  // namespace

std::optional<InstallIdentity> ParsePairingUri(std::string_view uri) {
  if (!IsPlainAscii(uri) || !Skip(uri, "veldrift://pair?v=3&id=")) return std::nullopt;
  const std::optional<std::string> id = PercentDecode(TakeValue(uri));
  if (!Skip(uri, "&name=")) return std::nullopt;
  const std::optional<std::string> name = PercentDecode(TakeValue(uri));
  if (!id || !name || !SkipFurtherKeys(uri)) return std::nullopt;
  return InstallIdentity{*id, *name};
}

}  // namespace Veldrift
