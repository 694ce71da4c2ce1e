// The one source of time, and the one place that waits. Arithmetic takes `now` as an argument,
// policy takes a Clock, and tests move a clock by hand (tests/support/manual_clock.h).
#pragma once

#include <cstdint>

#include "platform/mutex.h"

namespace Veldrift {

constexpr int64_t kNanosPerMicro = 1'000;
constexpr int64_t kNanosPerMilli = 1'000'000;
constexpr int64_t kNanosPerSecond = 1'000'000'000;

// Threads: any thread may call anything.
class Clock {
 public:
  virtual ~Clock() = default;

  // Steady time in nanoseconds; its origin is arbitrary.
  virtual int64_t NowNanos() const = 0;

  virtual void SleepFor(int64_t nanos) = 0;

  // Waits on `condition`, whose mutex `lock` holds, until it is notified or `deadlineNanos` has
  // come. It can return early: the caller tests its condition and the time in a loop.
  virtual void WaitUntil(CondVar& condition, MutexLock& lock, int64_t deadlineNanos) = 0;
};

// The system's steady clock.
Clock& SystemClock();

// SystemClock().NowNanos().
int64_t SteadyNanos();

}  // namespace Veldrift
