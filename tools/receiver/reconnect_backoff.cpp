#include "tools/receiver/reconnect_backoff.h"

#include <algorithm>

namespace Veldrift {

int64_t ReconnectBackoff::AfterEnd(int64_t livedNs) {
  failureNs_ = kFirstNs;
  contestNs_ = livedNs >= kLongLifeNs ? kFirstNs : std::min(contestNs_ * 2, kLongestContestNs);
  return contestNs_;
}

int64_t ReconnectBackoff::AfterFailure() {
  const int64_t wait = failureNs_;
  failureNs_ = std::min(failureNs_ * 2, kLongestNs);
  return wait;
}

}  // namespace Veldrift
