// Threads that can't be had, from the host's side.
#include "tests/support/thread_shortage.h"

#include "tests/session/session_fixture.h"

namespace Veldrift {
namespace {

class ThreadShortage : public SessionFixture {
 protected:
  static constexpr Host::ClockRecord kPlaying{[](void*, int64_t) {}, nullptr,
                                              Host::kPlayModePlaying};
};

TEST_F(ThreadShortage, AClockThatCannotBeStartedSaysSoAndCountsForNothing) {
  StartSession();
  RefuseNextThread();
  EXPECT_FALSE(instance->StartClock(kPlaying, 0));
  EXPECT_EQ(ToldBytes(kPlaybackState), "10");
  instance->StopClock();
  EXPECT_EQ(ToldBytes(kPlaybackState), "");

  EXPECT_TRUE(instance->StartClock(kPlaying, 0));
  EXPECT_EQ(ToldBytes(kPlaybackState), "1");
  instance->StopClock();
  EXPECT_EQ(ToldBytes(kPlaybackState), "0");

  // What the host's sound counts stays counted.
  instance->UpdateAudioPushState(true, false);
  RefuseNextThread();
  EXPECT_FALSE(instance->StartClock(kPlaying, 0));
  EXPECT_EQ(ToldBytes(kPlaybackState), "1");
  instance.reset();
  EXPECT_EQ(ToldBytes(kPlaybackState), "0");
}

}  // namespace
}  // namespace Veldrift
