// Waits for what another thread brings about.
#pragma once

#include "support/clock.h"

namespace Veldrift {

// How long anything may take before a test calls it hung. No test waits so long when all is well.
inline constexpr int64_t kPatienceNanos = 90 * kNanosPerSecond;

// True as soon as `condition()` is; false if it hasn't been when patience ran out.
template <typename Condition>
bool Eventually(Condition&& condition) {
  const int64_t end = SteadyNanos() + kPatienceNanos;
  while (!condition()) {
    if (SteadyNanos() >= end) return false;
    SystemClock().SleepFor(kNanosPerMilli / 2);
  }
  return true;
}

}  // namespace Veldrift
