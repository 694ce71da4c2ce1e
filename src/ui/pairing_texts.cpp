#include "ui/pairing_texts.h"

#include <algorithm>

#include "support/text.h"

namespace Veldrift {
namespace {

bool IsControlCharacter(char c) { return (c >= '\0' && c < ' ') || c == '\x7F'; }

}  // namespace

std::string PairingPrompt(std::string_view peerName) {
  std::string name = peerName.empty() ? "iPhone" : MendUtf8(peerName);
  std::ranges::replace_if(name, IsControlCharacter, ' ');
  return "Enter this code on " + name + ":";
}

std::string SpacedCode(std::string_view code) {
  const std::string whole = MendUtf8(code);
  std::string_view rest = whole;
  std::string spaced;
  while (!rest.empty()) {
    const size_t length = Utf8CharacterLength(rest);
    if (!spaced.empty()) spaced += ' ';
    spaced += rest.substr(0, length);
    rest.remove_prefix(length);
  }
  return spaced;
}

}  // namespace Veldrift
