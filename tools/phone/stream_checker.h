// Judges the decoded pictures by the stamps that a generated picture carries: order, gaps, and
// whether the picture is the right one; and measures delays. A stream without stamps has no order
// to judge.
//
// Threads: belongs to the decoding thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tools/av/av_handles.h"
#include "tools/pattern/pattern.h"
#include "tools/receiver/receive_stats.h"
#include "tools/receiver/whole_frame.h"

namespace Veldrift {

struct CheckCounters {
  uint64_t stamped = 0;
  uint64_t unreadable = 0;  // after stamps had been seen
  uint64_t repeated = 0;    // the picture before once more, as a paused host gives it
  uint64_t replayed = 0;    // pictures that greet a new phone, which may be older ones
  uint64_t outOfOrder = 0;
  uint64_t neverSeen = 0;  // numbers left out: skipped by the host, or lost
  std::string firstFault;
};

class StreamChecker {
 public:
  void Look(const AVFrame& picture, const WholeFrame& frame, int64_t nowNs);

  const CheckCounters& Counters() const { return counters_; }
  bool Right() const { return counters_.unreadable == 0 && counters_.outOfOrder == 0; }

  const DelayStats& PushToWhole() const { return pushToWhole_; }
  const DelayStats& PushToPicture() const { return pushToPicture_; }
  // From framing, behind the encoder, to the whole frame; for every stream.
  const DelayStats& FramingToWhole() const { return framingToWhole_; }

 private:
  void Follow(const PatternStamp& stamp, const WholeFrame& frame);
  void FollowConnection(uint32_t connection);
  void MeasureFraming(const WholeFrame& frame);
  void Fault(uint64_t& counter, const WholeFrame& frame, const char* what);

  uint64_t pictures_ = 0;  // of the connection
  bool replayed_ = false;  // in the connection
  std::optional<PatternStamp> last_;
  uint32_t connection_ = 0;
  CheckCounters counters_;
  DelayStats pushToWhole_;
  DelayStats pushToPicture_;
  DelayStats framingToWhole_;
};

}  // namespace Veldrift
