// The inner steps of the colour conversion, one function an instruction set. The files of the
// vector variants include nothing but this: an inline function that they compiled for their
// instruction set could stand in for everybody's.
#pragma once

#include <cstdint>

namespace Veldrift {

// Two rows of pixels and what they become: two rows of luma and one of chroma.
struct Nv12RowPair {
  const uint8_t* top;
  const uint8_t* bottom;
  uint8_t* lumaTop;
  uint8_t* lumaBottom;
  uint8_t* chroma;
};

// Converts the columns from 0 on as far as whole vectors reach and answers how many that were, an
// even number.
int ConvertRowPairSsse3(const Nv12RowPair& rows, int width);
int ConvertRowPairAvx2(const Nv12RowPair& rows, int width);

}  // namespace Veldrift
