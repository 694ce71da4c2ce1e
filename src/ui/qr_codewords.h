// From a text to the codewords of a QR code, in the order in which they are placed: what the
// standard prints about the versions at error correction level H, the data, and its error
// correction.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace Veldrift {

// ---- The versions -------------------------------------------------------------------------------

inline constexpr int kQrVersions = 40;

struct QrVersionTraits {
  int dataCodewords;  // of all blocks together
  int blocks;
  int correctionPerBlock;  // error correction codewords
};

// `version` from 1 to 40.
const QrVersionTraits& TraitsOfQrVersion(int version);

// How many bits tell the count of bytes: 8 up to version 9, then 16.
int QrLengthBits(int version);

// The smallest version that takes so many bytes; nothing if none does. Each keeps 7 bits more than
// the standard asks for, so that a text which would just fit by the standard takes the next one.
std::optional<int> SmallestQrVersion(size_t bytes);

// Where the centres of the alignment patterns lie, in columns and rows alike, ascending; empty for
// version 1.
std::vector<int> QrAlignmentPositions(int version);

// ---- The codewords ------------------------------------------------------------------------------

// The data codewords of all blocks interleaved, and behind them the error correction codewords
// likewise. `bytes` must fit `version`.
std::vector<uint8_t> MakeQrCodewords(std::string_view bytes, int version);

// The data codewords alone, before they are split into blocks: header, bytes, terminator, padding.
std::vector<uint8_t> MakeQrData(std::string_view bytes, int version);

// ---- Error correction over GF(256), with the polynomial 0x11D and the generator 2 ---------------

// The divisor with the roots 2^0, 2^1, ... 2^(degree - 1): `degree` coefficients, the highest power
// first and its leading 1 left out.
std::vector<uint8_t> ReedSolomonDivisor(int degree);

// What is left of `data` times x^degree divided by `divisor`: as many bytes as that one has.
std::vector<uint8_t> ReedSolomonRemainder(std::span<const uint8_t> data,
                                          std::span<const uint8_t> divisor);

}  // namespace Veldrift
