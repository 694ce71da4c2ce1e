// Little-endian fields of the wire, whatever the machine's order and alignment.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Veldrift {

inline void PutU16(std::byte* out, uint16_t value) {
  out[0] = std::byte(value & 0xFF);
  out[1] = std::byte(value >> 8);
}

inline void PutU32(std::byte* out, uint32_t value) {
  PutU16(out, uint16_t(value & 0xFFFF));
  PutU16(out + 2, uint16_t(value >> 16));
}

inline uint16_t GetU16(const std::byte* in) {
  return uint16_t(std::to_integer<uint16_t>(in[0]) | std::to_integer<uint16_t>(in[1]) << 8);
}

inline uint32_t GetU32(const std::byte* in) {
  return uint32_t{GetU16(in)} | uint32_t{GetU16(in + 2)} << 16;
}

}  // namespace Veldrift
