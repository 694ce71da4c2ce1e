// What the standard prints about the versions at error correction level H.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

namespace Veldrift {

inline constexpr int kQrVersions = 40;
inline constexpr int kQrMasks = 8;

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

}  // namespace Veldrift
