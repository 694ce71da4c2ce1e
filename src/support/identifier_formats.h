// How random bytes become identifiers: the generators' arithmetic, apart from the generator.
// Nothing in place of the bytes stands for a generator that failed.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace Veldrift {

// The bytes as a little-endian number, modulo a million, in six digits.
std::string FormatPairingCode(const std::optional<std::array<uint8_t, 4>>& random);

// Two lower-case digits a byte, high nibble first.
std::string FormatHex(std::span<const uint8_t> bytes);

// The usual text form of a UUID, from its bytes in text order.
std::string FormatUuid(const std::optional<std::array<uint8_t, 16>>& uuid);

}  // namespace Veldrift
