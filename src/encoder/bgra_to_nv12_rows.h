// The inner steps of the colour conversion, one function an instruction set. The files of the
// vector variants include nothing but this and the numbers: an inline function that they compiled
// for their instruction set could stand in for everybody's.
//
// How both calculate. Luma: the weights 16, 157, 47 don't all fit a signed byte, and pixels don't
// either, but one operand of the multiply must be signed. So the pixels are: with 128 taken off
// them the products stay within -28160 and 27940, no pair sum saturates, and the constant puts
// 220 x 128 back together with rounding and the offset. As an unsigned word the total fits.
//
// Chroma: neighbours' channels are brought side by side and added in pairs, then both rows; a
// quarter of that is a byte again, which the signed weights, all of which fit, multiply: between
// -28815 and 28560.
#pragma once

#include <cstdint>

#include "encoder/bt709.h"

namespace Veldrift {

// What a pixel of 128s weighs, the rounding and the offset: what luma's words lack.
inline constexpr short kLumaBias = static_cast<short>((bt709::kYB + bt709::kYG + bt709::kYR) * 128 +
                                                      bt709::kRound + (bt709::kYOff << 8));

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
