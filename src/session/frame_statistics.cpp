#include "session/frame_statistics.h"

#include <algorithm>

#include "support/debug_topics.h"
#include "support/plugin_log.h"

namespace Veldrift {

namespace {

constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr int64_t kSpanNanos = 10 * kNanosPerSecond;

double Millis(int64_t nanos) { return double(nanos) / double(kNanosPerMilli); }

}  // namespace

void FrameStatistics::Tally::Count(int64_t frameNanos, int64_t frameLasts) {
  ++frames;
  nanos += frameNanos;
  longestNanos = std::max(longestNanos, frameNanos);
  if (frameNanos > frameLasts) ++late;
}

double FrameStatistics::Tally::MeanMillis() const {
  return frames == 0 ? 0 : Millis(nanos) / double(frames);
}

void FrameStatistics::Submitted(int64_t nanos, int32_t fps) {
  const int64_t now = clock_.NowNanos();
  if (span_.frames == 0) span_.sinceNanos = now;
  if (second_.frames == 0) second_.sinceNanos = now;
  const int64_t frameLasts = kNanosPerSecond / std::max(fps, 1);
  second_.Count(nanos, frameLasts);
  span_.Count(nanos, frameLasts);
  if (now - second_.sinceNanos >= kNanosPerSecond) WriteTopic(now, fps);
  if (now - span_.sinceNanos >= kSpanNanos) WarnIfTooSlow(now, fps);
}

void FrameStatistics::WriteTopic(int64_t now, int32_t fps) {
  const uint64_t encoded = encoded_.exchange(0);
  const uint64_t bytes = encodedBytes_.exchange(0);
  if (IsDebugTopicEnabled(DebugTopic::Fps)) {
    const double seconds = double(now - second_.sinceNanos) / double(kNanosPerSecond);
    DebugTopicLog(DebugTopic::Fps,
                  "source=%d pushed=%lld encoded=%llu late=%lld push mean=%.1f ms longest=%.1f ms "
                  "rate=%.1f Mbit/s over %.2f s",
                  fps, static_cast<long long>(second_.frames),
                  static_cast<unsigned long long>(encoded), static_cast<long long>(second_.late),
                  second_.MeanMillis(), Millis(second_.longestNanos),
                  double(bytes) * 8 / 1e6 / seconds, seconds);
  }
  second_ = {};
}

// A few late frames are no news: a tenth of them shows on the screen.
void FrameStatistics::WarnIfTooSlow(int64_t now, int32_t fps) {
  if (span_.late * 10 >= span_.frames) {
    PluginLog(kLog, kLogInfo,
              "encoder slower than the source: %lld of %lld frames in %.1f s took longer than a "
              "frame of %d fps lasts (mean %.1f ms, longest %.1f ms)",
              static_cast<long long>(span_.late), static_cast<long long>(span_.frames),
              double(now - span_.sinceNanos) / double(kNanosPerSecond), fps, span_.MeanMillis(),
              Millis(span_.longestNanos));
  }
  span_ = {};
}

}  // namespace Veldrift
