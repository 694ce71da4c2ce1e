// Notices an encoder that takes frames and gives nothing back.
#pragma once

#include <atomic>
#include <cstdint>

namespace Veldrift {

// Threads: the host's thread feeds; the encoder's output thread reports output. A lost update only
// moves the timer by a frame.
class StallWatch {
 public:
  void Output(int64_t nowNanos) { lastOutputNanos_ = nowNanos; }

  // A frame was given to the encoder. Above 0: it has stalled for that many nanoseconds and is to
  // be rebuilt now; said again after 5 s at the earliest.
  int64_t Fed(int64_t nowNanos);

 private:
  std::atomic<int64_t> lastOutputNanos_{0};
  std::atomic<int64_t> lastFeedNanos_{0};
  int64_t lastRebuildNanos_ = 0;  // the feeding thread's
};

}  // namespace Veldrift
