#include "tools/view/playout.h"

#include <algorithm>
#include <vector>

namespace Veldrift {
namespace {

constexpr int64_t kSettlingNs = kNanosPerSecond;  // at the start it follows at once
// The sound is played faster by so much while the delay falls.
constexpr int64_t kFallPerSecond = 20 * kNanosPerMilli;
// One in so many may come too late.
constexpr size_t kLateShare = 50;

}  // namespace

int64_t Playout::Wanted() const {
  std::vector<int64_t> behind;
  for (const Entry& entry : entries_) {
    if (entry.behindNs - leastNs_ <= kMostWaitNs) behind.push_back(entry.behindNs);
  }
  const auto nth = behind.end() - 1 - ptrdiff_t(behind.size() / kLateShare);
  std::nth_element(behind.begin(), nth, behind.end());
  return *nth;
}

// It rises at once and falls slowly. Where it is nonsense, as behind an old picture that came
// alone, it jumps.
void Playout::Approach(int64_t wantedNs, int64_t elapsedNs) {
  const bool settling = entries_.back().readyNs - firstNs_ < kSettlingNs;
  if (settling || wantedNs > behindNs_ || behindNs_ - wantedNs > kMostWaitNs) {
    behindNs_ = wantedNs;
    return;
  }
  const int64_t step = std::min(elapsedNs, kNanosPerSecond) * kFallPerSecond / kNanosPerSecond;
  behindNs_ = std::max(wantedNs, behindNs_ - step);
}

void Playout::Note(int64_t timeMicros, int64_t readyNs) {
  if (firstNs_ == 0) firstNs_ = readyNs;
  const int64_t beforeNs = entries_.empty() ? readyNs : entries_.back().readyNs;
  const int64_t nowNs = std::max(readyNs, beforeNs);
  entries_.push_back({nowNs, readyNs - timeMicros * kNanosPerMicro});
  while (nowNs - entries_.front().readyNs > kSpanNs) entries_.pop_front();
  leastNs_ = std::ranges::min(entries_, {}, &Entry::behindNs).behindNs;
  Approach(Wanted(), nowNs - beforeNs);
}

int64_t Playout::DueNs(int64_t timeMicros) const {
  return entries_.empty() ? 0 : timeMicros * kNanosPerMicro + behindNs_;
}

}  // namespace Veldrift
