#include "tools/receiver/key_frame_asker.h"

#include <algorithm>

namespace Veldrift {

void KeyFrameAsker::BeginConnection(int64_t nowNs) {
  periodNs_ = kShortestNs;
  nextNs_ = nowNs + kShortestNs;
}

bool KeyFrameAsker::Due(bool wanted, int64_t nowNs) {
  if (!wanted) {
    periodNs_ = kShortestNs;
    return false;
  }
  if (nowNs < nextNs_) return false;
  nextNs_ = nowNs + std::max(periodNs_, travelNs_);
  periodNs_ = std::min(periodNs_ * 2, kLongestNs);
  return true;
}

}  // namespace Veldrift
