#include "support/identifiers.h"

#include <cstdio>
#include <vector>

#include "platform/system.h"

namespace Veldrift {
namespace {

constexpr const char* kFallbackPairingCode = "271828";
constexpr const char* kNilUuid = "00000000-0000-0000-0000-000000000000";
constexpr uint32_t kPairingCodes = 1'000'000;

}  // namespace

std::string FormatPairingCode(const std::optional<std::array<uint8_t, 4>>& random) {
  if (!random) return kFallbackPairingCode;
  uint32_t value = 0;
  for (size_t i = 0; i < 4; ++i) value |= static_cast<uint32_t>((*random)[i]) << (8 * i);
  char code[16];
  std::snprintf(code, sizeof code, "%06u", static_cast<unsigned>(value % kPairingCodes));
  return code;
}

std::string FormatHex(std::span<const uint8_t> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const uint8_t byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 0x0F];
  }
  return text;
}

std::string FormatUuid(const std::optional<std::array<uint8_t, 16>>& uuid) {
  if (!uuid) return kNilUuid;
  std::string text = FormatHex(*uuid);
  for (const size_t dash : {8, 13, 18, 23}) text.insert(dash, 1, '-');
  return text;
}

std::string MakePairingCode() {
  std::array<uint8_t, 4> random{};
  if (!FillRandom(std::as_writable_bytes(std::span(random)))) return FormatPairingCode({});
  return FormatPairingCode(random);
}

std::string MakeToken(size_t bytes) {
  std::vector<uint8_t> random(bytes);
  if (!FillRandom(std::as_writable_bytes(std::span(random)))) return {};
  return FormatHex(random);
}

std::string MakeUuid() { return FormatUuid(CreateUuid()); }

}  // namespace Veldrift
