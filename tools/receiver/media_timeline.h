// Puts both streams' time stamps, 32 bits of microseconds, on one line that doesn't wrap. A stream
// whose time steps back (its sender began anew) goes on where it was.
//
// Threads: belongs to one thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "net/media_datagram.h"

namespace Veldrift {

class MediaTimeline {
 public:
  // Microseconds; the first stamp of all lies at its own value, later ones as far from it as they
  // are apart, up to half an hour at a time.
  int64_t Place(StreamType stream, uint32_t timestamp);

 private:
  struct Line {
    std::optional<int64_t> last;
    int64_t shift = 0;
  };

  std::optional<int64_t> newest_;  // of either stream, before any shift
  std::array<Line, 2> lines_;
};

}  // namespace Veldrift
