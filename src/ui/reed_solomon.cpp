#include "ui/reed_solomon.h"

#include <algorithm>
#include <array>

namespace Veldrift {
namespace {

constexpr unsigned kPolynomial = 0x11D;
constexpr size_t kOrder = 255;  // of the generator

struct FieldTables {
  // Twice over, so that the sum of two logarithms needs no reduction.
  std::array<uint8_t, 2 * kOrder> exponent{};
  std::array<uint8_t, 256> logarithm{};  // of 1 to 255
};

FieldTables BuildTables() {
  FieldTables tables;
  unsigned value = 1;
  for (size_t power = 0; power < kOrder; ++power) {
    tables.exponent[power] = tables.exponent[power + kOrder] = uint8_t(value);
    tables.logarithm[value] = uint8_t(power);
    value <<= 1;
    if (value > 0xFF) value ^= kPolynomial;
  }
  return tables;
}

const FieldTables& Tables() {
  static const FieldTables tables = BuildTables();
  return tables;
}

uint8_t Multiply(uint8_t a, uint8_t b) {
  if (a == 0 || b == 0) return 0;
  const FieldTables& tables = Tables();
  return tables.exponent[size_t(tables.logarithm[a]) + tables.logarithm[b]];
}

}  // namespace

std::vector<uint8_t> ReedSolomonDivisor(int degree) {
  std::vector<uint8_t> divisor(size_t(degree), 0);
  divisor.back() = 1;
  uint8_t root = 1;
  for (int i = 0; i < degree; ++i) {
    // Times (x - root); minus is plus here.
    for (size_t j = 0; j < divisor.size(); ++j) {
      divisor[j] = Multiply(divisor[j], root);
      if (j + 1 < divisor.size()) divisor[j] ^= divisor[j + 1];
    }
    root = Multiply(root, 2);
  }
  return divisor;
}

std::vector<uint8_t> ReedSolomonRemainder(std::span<const uint8_t> data,
                                          std::span<const uint8_t> divisor) {
  std::vector<uint8_t> remainder(divisor.size(), 0);
  for (const uint8_t byte : data) {
    const uint8_t factor = byte ^ remainder.front();
    std::shift_left(remainder.begin(), remainder.end(), 1);
    remainder.back() = 0;
    for (size_t i = 0; i < divisor.size(); ++i) remainder[i] ^= Multiply(divisor[i], factor);
  }
  return remainder;
}

}  // namespace Veldrift
