// What a block of the stream's sound holds.
//
// Threads: pure.
#pragma once

#include <optional>
#include <vector>

#include "tools/receiver/whole_frame.h"

namespace Veldrift {

struct SoundFormat {
  int sampleRate = 0;
  int channels = 0;
  bool operator==(const SoundFormat&) const = default;
};

// Of an audio block; nothing for one that isn't whole, or of a format that no sound has: who forges
// datagrams mustn't make a receiver set aside memory for it.
std::optional<SoundFormat> SoundOf(const WholeFrame& block);
// Interleaved. The block must have a format.
std::vector<float> SamplesOf(const WholeFrame& block);

}  // namespace Veldrift
