// What a receiver hands on: one frame, whole and, where needed, repaired.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "net/media_datagram.h"

namespace Veldrift {

struct WholeFrame {
  StreamType stream = StreamType::Video;
  // Which of the receiver's connections it came with. With another one, frame numbers and time
  // stamps may begin anew, and the picture before is no reference.
  uint32_t connection = 0;
  uint16_t frameNumber = 0;
  bool keyFrame = false;
  uint32_t timestamp = 0;                  // microseconds of the sender's timeline; wraps
  std::vector<std::byte> data;             // an access unit, or an audio block with its head
  int64_t firstDatagramNs = 0;             // the receiver's clock
  int64_t wholeNs = 0;                     // when nothing was missing any more
  std::optional<uint32_t> sendTimeMicros;  // the sender's clock at framing; wraps
  size_t repairedFragments = 0;            // restored by the block code
  bool concealed = false;                  // a part of this sound was made up
};

using SharedFrame = std::shared_ptr<const WholeFrame>;

}  // namespace Veldrift
