// When to show and to play what has come: picture and sound in step, and nothing later than the
// unrest of what comes makes it. A time of the sender's timeline is due as long after it as nearly
// all of the last seconds' pictures and sounds were ready behind theirs.
//
// Threads: the caller's matter.
#pragma once

#include <cstdint>
#include <deque>

#include "support/clock.h"

namespace Veldrift {

class Playout {
 public:
  // What stands at `timeMicros` could be shown, or heard, from `readyNs` of the steady clock on.
  void Note(int64_t timeMicros, int64_t readyNs);

  // When it should be, on the steady clock; that can have passed. 0: nothing was noted.
  int64_t DueNs(int64_t timeMicros) const;

  // How long what comes the fastest waits.
  int64_t WaitNs() const { return entries_.empty() ? 0 : behindNs_ - leastNs_; }

  // What comes later than the fastest by more than this isn't waited for.
  static constexpr int64_t kMostWaitNs = 300 * kNanosPerMilli;
  static constexpr int64_t kSpanNs = 3 * kNanosPerSecond;

 private:
  struct Entry {
    int64_t readyNs;
    int64_t behindNs;
  };

  int64_t Wanted() const;
  void Approach(int64_t wantedNs, int64_t elapsedNs);

  std::deque<Entry> entries_;  // of the last kSpanNs
  int64_t firstNs_ = 0;
  int64_t leastNs_ = 0;
  int64_t behindNs_ = 0;  // due so long after its time
};

}  // namespace Veldrift
