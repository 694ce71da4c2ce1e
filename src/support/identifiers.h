// Generators of identifiers and secrets. Threads: any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace Veldrift {

// Six ASCII digits, "271828" if the system's generator failed.
std::string MakePairingCode();

// `bytes` random bytes as lower-case hexadecimal digits, high nibble first; empty if the generator
// failed.
std::string MakeToken(size_t bytes);

// A new UUID in lower-case text form; the nil UUID if the system gave none.
std::string MakeUuid();

// ---- How random bytes become identifiers --------------------------------------------------------
// Nothing in place of the bytes stands for a generator that failed.

// The bytes as a little-endian number, modulo a million, in six digits.
std::string FormatPairingCode(const std::optional<std::array<uint8_t, 4>>& random);

// Two lower-case digits a byte, high nibble first.
std::string FormatHex(std::span<const uint8_t> bytes);

// The usual text form of a UUID, from its bytes in text order.
std::string FormatUuid(const std::optional<std::array<uint8_t, 16>>& uuid);

}  // namespace Veldrift
