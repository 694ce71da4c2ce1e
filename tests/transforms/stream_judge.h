// Looks into streams: their NAL units, and by the module's decoder their pictures.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/transforms/encoder_client.h"

namespace Veldrift::Transforms {

// The types of the units behind start codes, or, if `lengths`, behind lengths that have to tile the
// bytes; empty if they don't.
std::vector<int> TypesOf(const std::vector<uint8_t>& bytes, bool hevc, bool lengths = false);

// Whether one of the types is an instantaneous refresh.
bool HasKeyPicture(const std::vector<int>& types, bool hevc);
bool HasSets(const std::vector<int>& types, bool hevc);

// The numbers of the units that hold a key picture, told from the bytes.
std::vector<int> KeyPictures(const std::vector<Unit>& units, bool hevc);

size_t TotalBytes(const std::vector<Unit>& units);

struct Decoded {
  int pictures = 0;  // -1: refused
  int damaged = 0;
  int unlikePatch = 0;    // pictures whose patch isn't of its colour, within two levels
  int unlikeSignal = 0;   // pictures that don't say BT.709 and limited range
  double worstPsnr = 99;  // of the luma of the frames from 0 on
};

Decoded Decode(const std::vector<uint8_t>& before, const std::vector<Unit>& units, bool hevc);

}  // namespace Veldrift::Transforms
