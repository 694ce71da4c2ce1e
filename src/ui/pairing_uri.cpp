#include "ui/pairing_uri.h"

#include <cstdint>

namespace Veldrift {
namespace {

bool IsUnreserved(char byte) {
  // Not isalnum: that one asks the host's locale.
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9') ||
         std::string_view("-._~").find(byte) != std::string_view::npos;
}

}  // namespace

std::string PercentEncode(std::string_view text) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string encoded;
  for (const char byte : text) {
    if (IsUnreserved(byte)) {
      encoded += byte;
    } else {
      encoded += '%';
      encoded += kDigits[uint8_t(byte) >> 4];
      encoded += kDigits[uint8_t(byte) & 0x0F];
    }
  }
  return encoded;
}

std::string BuildPairingUri(const InstallIdentity& identity) {
  return "veldrift://pair?v=3&id=" + PercentEncode(identity.id) +
         "&name=" + PercentEncode(identity.name);
}

}  // namespace Veldrift
