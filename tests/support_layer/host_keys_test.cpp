#include "support/host_keys.h"

#include <gtest/gtest.h>

#include "platform/keyboard.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

TEST(HostKeys, WithoutAKeyboardTheLogSaysSoOnceAndNobodyWaits) {
  if (CanTypeKeys()) GTEST_SKIP() << "this system has a keyboard to type on";
  const ScratchHome home;
  ManualClock clock;
  const int64_t before = clock.NowNanos();
  SendHostKeys(0x20);
  NudgeHostByKeyboard(clock);
  EXPECT_EQ(clock.NowNanos(), before);
  EXPECT_EQ(CountInPluginLog("kbd:INFO] no way to send keys to the host on this system"), 1U);
  EXPECT_EQ(CountInPluginLog("kbd:INFO] nudge: →← (Premiere)"), 1U);
}

}  // namespace
}  // namespace Veldrift
