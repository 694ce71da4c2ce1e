#include "session/stall_watch.h"

#include "support/clock.h"

namespace Veldrift {

namespace {
// A longer pause in feeding says nothing about the encoder.
constexpr int64_t kFeedGapNanos = kNanosPerSecond;
constexpr int64_t kStallNanos = 3 * kNanosPerSecond;
constexpr int64_t kRebuildDistanceNanos = 5 * kNanosPerSecond;
}  // namespace

int64_t StallWatch::Fed(int64_t nowNanos) {
  const int64_t previousFeed = lastFeedNanos_.exchange(nowNanos);
  const int64_t lastOutput = lastOutputNanos_;
  if (previousFeed == 0 || nowNanos - previousFeed > kFeedGapNanos) {
    lastOutputNanos_ = nowNanos;
    return 0;
  }
  const bool stalled = lastOutput > 0 && nowNanos - lastOutput > kStallNanos;
  if (!stalled || nowNanos - lastRebuildNanos_ <= kRebuildDistanceNanos) return 0;
  lastRebuildNanos_ = nowNanos;
  lastOutputNanos_ = nowNanos;
  return nowNanos - lastOutput;
}

}  // namespace Veldrift
