#include "support/clock.h"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

// However late a sleeper wakes, none of these may have been left out.
TEST(SystemClock, ShortSleepsAreSlept) {
  constexpr int64_t kShort = 200 * kNanosPerMicro;
  constexpr int kSleeps = 100;
  const int64_t start = SystemClock().NowNanos();
  for (int i = 0; i < kSleeps; ++i) SystemClock().SleepFor(kShort);
  EXPECT_GE(SystemClock().NowNanos() - start, kSleeps * kShort);
}

}  // namespace
}  // namespace Veldrift
