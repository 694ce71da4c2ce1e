// Threads that can't be had, from the host's side.
#include "tests/support/thread_shortage.h"

#include "tests/session/session_fixture.h"

namespace Veldrift {
namespace {

class ThreadShortage : public SessionFixture {
 protected:
  static constexpr Host::ClockRecord kPlaying{[](void*, int64_t) {}, nullptr,
                                              Host::kPlayModePlaying};

  // The playback states that the phone has been told since the last question.
  std::string ToldStates() {
    std::string states;
    for (const auto& [opcode, payload] : TakeTold()) {
      if (opcode == kPlaybackState) states += payload == "\x01" ? '1' : '0';
    }
    return states;
  }
};

TEST_F(ThreadShortage, AClockThatCannotBeStartedSaysSoAndCountsForNothing) {
  StartSession();
  RefuseNextThread();
  EXPECT_FALSE(instance->StartClock(kPlaying, 0));
  EXPECT_EQ(ToldStates(), "10");
  instance->StopClock();
  EXPECT_EQ(ToldStates(), "");

  EXPECT_TRUE(instance->StartClock(kPlaying, 0));
  EXPECT_EQ(ToldStates(), "1");
  instance->StopClock();
  EXPECT_EQ(ToldStates(), "0");

  // What the host's sound counts stays counted.
  instance->UpdateAudioPushState(true, false);
  RefuseNextThread();
  EXPECT_FALSE(instance->StartClock(kPlaying, 0));
  EXPECT_EQ(ToldStates(), "1");
  instance.reset();
  EXPECT_EQ(ToldStates(), "0");
}

}  // namespace
}  // namespace Veldrift
