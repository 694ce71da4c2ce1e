#include "support/clock.h"

#include <chrono>

#include "platform/system.h"

namespace Veldrift {
namespace {

class SteadyClock final : public Clock {
 public:
  int64_t NowNanos() const override {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
  }

  void SleepFor(int64_t nanos) override {
    if (nanos > 0) SleepNanos(nanos);
  }

  void WaitUntil(CondVar& condition, MutexLock& lock, int64_t deadlineNanos) override {
    const int64_t left = deadlineNanos - NowNanos();
    if (left > 0) condition.WaitFor(lock, left);
  }
};

}  // namespace

Clock& SystemClock() {
  static SteadyClock clock;
  return clock;
}

int64_t SteadyNanos() { return SystemClock().NowNanos(); }

}  // namespace Veldrift
