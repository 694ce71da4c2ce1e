// A clock moved by hand that tells until when somebody waits.
#pragma once

#include <gtest/gtest.h>

#include <atomic>

#include "tests/support/eventually.h"
#include "tests/support/manual_clock.h"

namespace Veldrift {

class WatchedClock final : public Clock {
 public:
  int64_t NowNanos() const override { return clock_.NowNanos(); }
  void SleepFor(int64_t nanos) override { clock_.SleepFor(nanos); }
  void WaitUntil(CondVar& condition, MutexLock& lock, int64_t deadlineNanos) override {
    deadline_ = deadlineNanos;
    clock_.WaitUntil(condition, lock, deadlineNanos);
  }

  void Advance(int64_t nanos) { clock_.Advance(nanos); }
  // Returns when a thread waits that wants to be woken in so long.
  void AwaitWaiterFor(int64_t nanos) const {
    EXPECT_TRUE(Eventually([&] { return deadline_ == NowNanos() + nanos; }))
        << "nobody waits for " << nanos << " ns";
  }

 private:
  ManualClock clock_;
  std::atomic<int64_t> deadline_{0};
};

}  // namespace Veldrift
