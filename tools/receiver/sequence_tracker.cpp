#include "tools/receiver/sequence_tracker.h"

namespace Veldrift {

void SequenceTracker::Advance(uint32_t sequence) {
  const auto ahead = uint32_t(AheadBy(sequence));
  span_ += ahead;
  if (ahead > 1) ++gaps_;
  if (ahead >= kWindow) {
    seen_.reset();
  } else {
    for (uint32_t i = 1; i <= ahead; ++i) seen_.reset((highest_ + i) % kWindow);
  }
  highest_ = sequence;
}

bool SequenceTracker::Note(uint32_t sequence) {
  if (!started_) {
    started_ = true;
    highest_ = sequence;
    span_ = 1;
  } else if (AheadBy(sequence) > 0) {
    Advance(sequence);
  } else if (AheadBy(sequence) <= -int64_t(kWindow)) {
    return false;
  } else if (uint64_t(-AheadBy(sequence)) >= span_) {
    span_ = uint64_t(-AheadBy(sequence)) + 1;
  }
  if (seen_[sequence % kWindow]) return false;
  seen_[sequence % kWindow] = true;
  ++received_;
  return true;
}

}  // namespace Veldrift
