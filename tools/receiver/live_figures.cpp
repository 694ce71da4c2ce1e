#include "tools/receiver/live_figures.h"

namespace Veldrift {

namespace {

constexpr int64_t kStepNs = 100 * kNanosPerMilli;

double Percent(double part, double rest) { return part > 0 ? 100 * part / (part + rest) : 0; }

}  // namespace

LiveSample SampleOf(const AssemblerCounters& video) {
  return {video.bytes, video.datagrams, video.missingDatagrams, video.framesWhole,
          video.framesLost};
}

void LiveFigures::Add(const LiveSample& sample, int64_t nowNs) {
  if (nowNs < fromNs_) return;
  // The newest entry moves on until it is a step away from the one before.
  const size_t count = entries_.size();
  if (count >= 2 && nowNs - entries_[count - 2].timeNs < kStepNs) {
    entries_.back() = {sample, nowNs};
  } else {
    entries_.push_back({sample, nowNs});
  }
  while (entries_.size() > 2 && nowNs - entries_[1].timeNs >= kSpanNs) entries_.pop_front();
}

void LiveFigures::BeginAnew(int64_t nowNs) {
  entries_.clear();
  fromNs_ = nowNs + kSettleNs;
}

bool LiveFigures::Full() const {
  return !entries_.empty() && entries_.back().timeNs - entries_.front().timeNs >= kSpanNs;
}

// Numbers that came late fill gaps, so that what is missing can become less.
double LiveFigures::Grown(uint64_t LiveSample::*counter) const {
  if (entries_.empty()) return 0;
  return double(int64_t(entries_.back().sample.*counter - entries_.front().sample.*counter));
}

double LiveFigures::PerSecond(uint64_t LiveSample::*counter) const {
  if (entries_.size() < 2) return 0;
  const int64_t span = entries_.back().timeNs - entries_.front().timeNs;
  return span > 0 ? Grown(counter) * 1e9 / double(span) : 0;
}

double LiveFigures::FramesPerSecond() const { return PerSecond(&LiveSample::framesWhole); }
double LiveFigures::MegabitsPerSecond() const { return PerSecond(&LiveSample::bytes) * 8 / 1e6; }

double LiveFigures::FramesLostPercent() const {
  return Percent(Grown(&LiveSample::framesLost), Grown(&LiveSample::framesWhole));
}

double LiveFigures::DatagramsMissingPercent() const {
  return Percent(Grown(&LiveSample::missingDatagrams), Grown(&LiveSample::datagrams));
}

}  // namespace Veldrift
