// How the pictures of one instance fare: what "it stutters" looks like from inside.
#pragma once

#include <atomic>
#include <cstdint>

#include "support/clock.h"

namespace Veldrift {

// A line a second goes to the debug topic "fps" while frames are pushed. When the encoder takes the
// host's thread for longer than a frame lasts, so that the host can't keep its rate, the log says
// so, at most every 10 s.
//
// Threads: the host's thread submits, the encoder's output threads report.
class FrameStatistics {
 public:
  explicit FrameStatistics(Clock& clock) : clock_(clock) {}

  // A frame has been given to the encoder, which held the host's thread for `nanos`; the source has
  // `fps` frames a second.
  void Submitted(int64_t nanos, int32_t fps);

  // An access unit was queued for sending.
  void Encoded(uint64_t bytes) {
    ++encoded_;
    encodedBytes_ += bytes;
  }

 private:
  // Of a span of time: frames, and what they took.
  struct Tally {
    int64_t sinceNanos = 0;
    int64_t frames = 0, late = 0, nanos = 0, longestNanos = 0;
    void Count(int64_t frameNanos, int64_t frameLasts);
    double MeanMillis() const;
  };

  void WriteTopic(int64_t now, int32_t fps);
  void WarnIfTooSlow(int64_t now, int32_t fps);

  Clock& clock_;
  Tally second_, span_;  // the host's thread's
  std::atomic<uint64_t> encoded_{0}, encodedBytes_{0};
};

}  // namespace Veldrift
