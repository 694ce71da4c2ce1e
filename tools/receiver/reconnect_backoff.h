// How long to wait before the next try to connect. There is no last try.
//
// Threads: the caller's matter.
#pragma once

#include <cstdint>

#include "support/clock.h"

namespace Veldrift {

class ReconnectBackoff {
 public:
  // A connection that had lived so long has ended. Where it had lived long, the plug-in may be back
  // at once. Where it had not, somebody else may want it too, and two receivers that take it from
  // each other must leave it alone for longer each time.
  int64_t AfterEnd(int64_t livedNs);

  // A try came to nothing.
  int64_t AfterFailure();

  static constexpr int64_t kFirstNs = 500 * kNanosPerMilli;
  static constexpr int64_t kLongestNs = 2 * kNanosPerSecond;          // nobody answers
  static constexpr int64_t kLongestContestNs = 60 * kNanosPerSecond;  // somebody else connects
  static constexpr int64_t kLongLifeNs = 30 * kNanosPerSecond;

 private:
  int64_t contestNs_ = kFirstNs;
  int64_t failureNs_ = kFirstNs;
};

}  // namespace Veldrift
