// A token bucket in bytes, as plain arithmetic: the caller brings the time and does the waiting.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Veldrift {

// Not thread-safe: the pacer's worker owns it.
class TokenBucket {
 public:
  // Empty at `nowNanos`.
  explicit TokenBucket(int64_t nowNanos) : lastRefillNanos_(nowNanos) {}

  // Refills for the time since the last call at `bitsPerSecond`, up to 20 ms of that rate but never
  // less than `size`. Takes `size` bytes and answers 0 if they are there; otherwise takes nothing
  // and answers how long to wait before asking again, at least 50 microseconds, in nanoseconds.
  int64_t TakeOrWait(size_t size, uint32_t bitsPerSecond, int64_t nowNanos);

 private:
  int64_t lastRefillNanos_;
  double tokens_ = 0;
};

}  // namespace Veldrift
