// What the parts of one transmit instance share of its life: whether it runs, and the origin of its
// time stamps.
#pragma once

#include <atomic>
#include <cstdint>

#include "support/clock.h"

namespace Veldrift {

// Threads: any.
struct SessionState {
  explicit SessionState(Clock& steadyClock)
      : clock(steadyClock), epochNanos(steadyClock.NowNanos()) {}

  // The timeline that picture and sound share: microseconds since the instance's creation.
  int64_t ElapsedMicros() const { return MicrosAt(clock.NowNanos()); }
  // The same for a reading of the clock.
  int64_t MicrosAt(int64_t nowNanos) const { return (nowNanos - epochNanos) / kNanosPerMicro; }

  Clock& clock;
  const int64_t epochNanos;
  std::atomic<bool> running{false};  // between Start and Stop
};

}  // namespace Veldrift
