#include "identity/json_text.h"

#include <cstdio>

namespace Veldrift {
namespace {

struct Escape {
  char character;
  char letter;
};
constexpr Escape kEscapes[] = {
    {'"', '"'}, {'\\', '\\'}, {'\b', 'b'}, {'\f', 'f'}, {'\n', 'n'}, {'\r', 'r'}, {'\t', 't'},
};

void AppendEscaped(std::string& escaped, char character) {
  for (const auto& escape : kEscapes) {
    if (escape.character == character) {
      escaped += '\\';
      escaped += escape.letter;
      return;
    }
  }
  const auto byte = static_cast<unsigned char>(character);
  if (byte >= 0x20) {
    escaped += character;
    return;
  }
  char code[8];
  std::snprintf(code, sizeof code, "\\u%04x", byte);
  escaped += code;
}

char Unescaped(char letter) {
  for (const auto& escape : kEscapes) {
    if (escape.letter == letter) return escape.character;
  }
  return letter;
}

// The text from `at`, just behind a value's opening quotation mark, to its closing one.
std::string ReadValue(std::string_view json, size_t at) {
  std::string value;
  for (; at < json.size() && json[at] != '"'; ++at) {
    if (json[at] != '\\') {
      value += json[at];
    } else if (++at < json.size()) {
      value += Unescaped(json[at]);
    }
  }
  return at < json.size() ? value : std::string();
}

}  // namespace

std::string ExtractJsonString(std::string_view json, std::string_view key) {
  const std::string quotedKey = '"' + std::string(key) + '"';
  size_t at = json.find(quotedKey);
  if (at == std::string_view::npos) return {};
  at = json.find(':', at + quotedKey.size());
  if (at == std::string_view::npos) return {};
  at = json.find('"', at + 1);
  if (at == std::string_view::npos) return {};
  return ReadValue(json, at + 1);
}

std::string EscapeJsonString(std::string_view text) {
  std::string escaped;
  for (const char character : text) AppendEscaped(escaped, character);
  return escaped;
}

std::string JsonMember(std::string_view key, std::string_view value) {
  return '"' + std::string(key) + "\":\"" + EscapeJsonString(value) + '"';
}

}  // namespace Veldrift
