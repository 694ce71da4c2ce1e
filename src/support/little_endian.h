// Little-endian fields of the wire, whatever the machine's order and alignment.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Veldrift {

inline void PutU16(std::byte* out, uint16_t value) {
  if constexpr (std::endian::native == std::endian::big) value = uint16_t(value << 8 | value >> 8);
  std::memcpy(out, &value, sizeof value);
}

inline void PutU32(std::byte* out, uint32_t value) {
  if constexpr (std::endian::native == std::endian::big) {
    PutU16(out, uint16_t(value & 0xFFFF));
    PutU16(out + 2, uint16_t(value >> 16));
  } else {
    std::memcpy(out, &value, sizeof value);
  }
}

inline uint16_t GetU16(const std::byte* in) {
  return uint16_t(std::to_integer<uint16_t>(in[0]) | std::to_integer<uint16_t>(in[1]) << 8);
}

inline uint32_t GetU32(const std::byte* in) {
  return uint32_t{GetU16(in)} | uint32_t{GetU16(in + 2)} << 16;
}

}  // namespace Veldrift
