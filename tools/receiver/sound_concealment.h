// A block of sound of which fragments are missing: what came stays, and a gap is filled with the
// sound on both sides of it, mirrored and faded into each other, so that nothing jumps. A fragment
// is a few milliseconds.
//
// Threads: the caller's matter.
#pragma once

#include <cstddef>
#include <optional>
#include <vector>

#include "net/media_datagram.h"

namespace Veldrift {

// A frame's bytes as far as they came, and which of its data fragments didn't.
struct PartialFrame {
  std::vector<std::byte> data;  // zeros where nothing came
  std::vector<size_t> missing;  // fragment indices, rising
  bool endKnown = false;        // else `data` ends with a whole fragment
};

// What a stream's sound was like when a block last was whole.
struct SoundShape {
  AudioBlockHead head;
  size_t blockBytes = 0;
};

// Fills the gaps in `frame.data`, its head and its end included, and answers how many seconds of
// sound were made up. Nothing, and a frame of no use, if too little came or what came isn't of this
// shape.
std::optional<double> ConcealSound(PartialFrame& frame, const SoundShape& shape);

}  // namespace Veldrift
