// Waits for what another thread brings about.
#pragma once

#include "support/clock.h"

namespace Veldrift {

// True as soon as `condition()` is; false if it hasn't been for 30 s, which decides nothing but
// when a failed test ends.
template <typename Condition>
bool Eventually(Condition&& condition) {
  const int64_t end = SteadyNanos() + 30 * kNanosPerSecond;
  while (!condition()) {
    if (SteadyNanos() >= end) return false;
    SystemClock().SleepFor(kNanosPerMilli / 4);
  }
  return true;
}

}  // namespace Veldrift
