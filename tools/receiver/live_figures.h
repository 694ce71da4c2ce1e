// What a stream is like now: rates and shares of the last seconds, not since the start.
//
// Threads: the caller's matter.
#pragma once

#include <cstdint>
#include <deque>

#include "support/clock.h"
#include "tools/receiver/frame_assembler.h"

namespace Veldrift {

// Counters since the start of the run, which only grow.
struct LiveSample {
  uint64_t bytes = 0;  // of video datagrams
  uint64_t datagrams = 0;
  uint64_t missingDatagrams = 0;
  uint64_t framesWhole = 0;
  uint64_t framesLost = 0;
};
LiveSample SampleOf(const AssemblerCounters& video);

class LiveFigures {
 public:
  void Add(const LiveSample& sample, int64_t nowNs);
  // Nothing before this counts, nor what shows itself within kSettleNs: nobody has read what came
  // before.
  void BeginAnew(int64_t nowNs);

  // Of the time that is covered: kSpanNs, or less at the start. 0 where there is nothing.
  double FramesPerSecond() const;
  double MegabitsPerSecond() const;
  double FramesLostPercent() const;
  double DatagramsMissingPercent() const;
  // Whether kSpanNs are covered.
  bool Full() const;

  static constexpr int64_t kSpanNs = 3 * kNanosPerSecond;
  static constexpr int64_t kSettleNs = kNanosPerSecond;

 private:
  struct Entry {
    LiveSample sample;
    int64_t timeNs = 0;
  };

  double PerSecond(uint64_t LiveSample::*counter) const;
  double Grown(uint64_t LiveSample::*counter) const;

  int64_t fromNs_ = 0;
  std::deque<Entry> entries_;  // the first is the newest that is older than the span, if any is
};

}  // namespace Veldrift
