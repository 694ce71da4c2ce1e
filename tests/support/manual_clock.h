// A clock that a test moves by hand.
#pragma once

#include <atomic>

#include "support/clock.h"

namespace Veldrift {

// SleepFor moves the time itself, so a single-threaded sleeper runs in virtual time. WaitUntil
// really waits until another thread notifies the condition or advances the time past the deadline;
// it looks every millisecond of real time, which decides nothing but how soon it sees that.
class ManualClock : public Clock {
 public:
  explicit ManualClock(int64_t startNanos = kNanosPerSecond) : now_(startNanos) {}

  int64_t NowNanos() const override { return now_; }
  void SleepFor(int64_t nanos) override { Advance(nanos); }
  void WaitUntil(CondVar& condition, MutexLock& lock, int64_t deadlineNanos) override {
    if (now_ < deadlineNanos) condition.WaitFor(lock, kNanosPerMilli);
  }

  void Advance(int64_t nanos) { now_ += nanos; }
  void AdvanceTo(int64_t nanos) { now_ = nanos; }

 private:
  std::atomic<int64_t> now_;
};

}  // namespace Veldrift
