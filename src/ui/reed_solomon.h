// Error correction codewords over GF(256) with the polynomial 0x11D and the generator 2.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace Veldrift {

// The divisor with the roots 2^0, 2^1, ... 2^(degree - 1): `degree` coefficients, the highest power
// first and its leading 1 left out.
std::vector<uint8_t> ReedSolomonDivisor(int degree);

// What is left of `data` times x^degree divided by `divisor`: as many bytes as that one has.
std::vector<uint8_t> ReedSolomonRemainder(std::span<const uint8_t> data,
                                          std::span<const uint8_t> divisor);

}  // namespace Veldrift
