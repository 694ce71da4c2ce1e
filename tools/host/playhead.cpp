#include "playhead.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "media_source.h"
#include "support/clock.h"

namespace Veldrift {

namespace {

// The last tick of a segment is cut off by its end, and a machine may be busy. What is beyond this
// is no accident of the system's.
constexpr int64_t kTolerableLagNs = kNanosPerSecond;
// Each tick may be rounded up by one.
constexpr int64_t kTolerableLeadNs = kNanosPerMilli;
constexpr int64_t kTolerablePulledNs = 100 * kNanosPerMilli;

int64_t NanosToTicks(int64_t nanos) {
  return int64_t(double(nanos) * double(kTicksPerSecond) / 1e9);
}

std::string Millis(int64_t nanos) {
  char text[32];
  std::snprintf(text, sizeof text, "%.0f ms", double(nanos) / 1e6);
  return text;
}

}  // namespace

int64_t TicksToNanos(int64_t ticks) {
  return int64_t(double(ticks) * 1e9 / double(kTicksPerSecond));
}

void Playhead::Run(int speed, int64_t nowNs) {
  ticks_ = PositionAt(nowNs);
  tickNs_ = nowNs;
  speed_ = speed;
}

void Playhead::Stand(int64_t nowNs) { Run(0, nowNs); }

void Playhead::Tick(int64_t ticks, int64_t nowNs) {
  if (speed_ == 0) return;
  ticks_ = std::max<int64_t>(0, ticks_ + ticks * speed_);
  tickNs_ = nowNs;
}

void Playhead::MoveTo(int64_t place) { ticks_ = std::max<int64_t>(0, place) * ticksPerFrame_; }

int64_t Playhead::PositionAt(int64_t nowNs) const {
  const int64_t since = std::clamp<int64_t>(NanosToTicks(nowNs - tickNs_), 0, ticksPerFrame_);
  return std::max<int64_t>(0, ticks_ + (speed_ == 0 ? 0 : since * speed_));
}

int64_t Playhead::NanosToNextPlace(int64_t nowNs) const {
  const int64_t position = PositionAt(nowNs);
  const int64_t within = position % ticksPerFrame_;
  const int64_t left = speed_ < 0 ? within + 1 : ticksPerFrame_ - within;
  return TicksToNanos(left / std::max(1, std::abs(speed_))) + 1;
}

std::string ClockSegment::Verdict(int64_t stopNs, int64_t endNs, int64_t ticksPerFrame) const {
  const int64_t tickedNs = TicksToNanos(ticks);
  const int64_t lagNs = stopNs - startNs - tickedNs;
  const int64_t leadNs = tickedNs - (endNs - startNs);
  if (lagNs > TicksToNanos(ticksPerFrame) + kTolerableLagNs) {
    return "moved the host's clock by " + Millis(tickedNs) + " in " + Millis(stopNs - startNs);
  }
  if (leadNs > kTolerableLeadNs) return "moved the host's clock " + Millis(leadNs) + " too far";
  return {};
}

std::string VerdictOnPulled(int64_t samples, int64_t ticks, int sampleRate, int64_t ticksPerFrame) {
  const int64_t tolerableNs = kTolerablePulledNs + 2 * TicksToNanos(ticksPerFrame);
  const int64_t pulledNs = int64_t(double(samples) * 1e9 / sampleRate);
  const int64_t lagNs = TicksToNanos(ticks) - pulledNs;
  if (lagNs > tolerableNs) {
    return "pulled sound " + Millis(lagNs) + " behind the clock that it drives";
  }
  if (lagNs < -tolerableNs) {
    return "pulled sound " + Millis(-lagNs) + " ahead of the clock that it drives";
  }
  return {};
}

}  // namespace Veldrift
