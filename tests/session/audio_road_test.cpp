// The clock thread, the two roads of the sound, and what the phone is told of them.
#include "session/audio_road.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/session/session_fixture.h"

namespace Veldrift {
namespace {

constexpr int64_t kTicksPerSecond = 254'016'000'000;

// What the host's clock and its audio suite saw. The suite's calls carry no object.
struct HostSide {
  static inline std::atomic<int64_t> ticks{0};
  static inline std::atomic<int> ticked{0}, pulled{0};
  static inline std::atomic<int32_t> playID{0};
  static inline std::atomic<uint32_t> wanted{0};
  static inline std::atomic<Host::Error> answer{Host::kNoError};

  static void Reset() {
    ticks = 0;
    ticked = pulled = 0;
    answer = Host::kNoError;
  }
  static void Tick(void*, int64_t count) {
    ticks += count;
    ++ticked;
  }
  static Host::Error Pull(int32_t id, int64_t start, float** buffers, uint32_t frameCount) {
    EXPECT_EQ(start, 0);
    playID = id;
    wanted = frameCount;
    for (int channel = 0; channel < 2; ++channel) {
      std::fill_n(buffers[channel], frameCount, 0.25F);
    }
    ++pulled;
    return answer;
  }
  static constexpr Host::AudioSuite kSuite{Pull};
  static constexpr Host::ClockRecord kPlaying{Tick, nullptr, Host::kPlayModePlaying};
};

class AudioRoadTest : public SessionFixture {
 protected:
  AudioRoadTest() { HostSide::Reset(); }
  ~AudioRoadTest() override {
    if (instance) instance->Audio().StopClock();
  }

  AudioRoad& Road() { return instance->Audio(); }

  // Moves the time on until there is a tick. The clock thread looks each millisecond of real time.
  void PassFrame() {
    const int before = HostSide::ticked;
    while (HostSide::ticked == before) {
      clock.Advance(kNanosPerSecond / 120);
      for (int i = 0; i < 5 && HostSide::ticked == before; ++i) {
        SystemClock().SleepFor(2 * kNanosPerMilli);
      }
    }
  }
  int NextByteOf(uint8_t opcode) {
    const auto message = phone.NextOf(opcode);
    return message ? message->payload[0] : -1;
  }
};

TEST_F(AudioRoadTest, TheClockMovesTheHostByTheTimeThatHasPassed) {
  StartSession();
  const int64_t start = clock.NowNanos();
  Road().StartClock(HostSide::kPlaying, 0, nullptr);
  EXPECT_EQ(NextByteOf(kPlaybackState), 1);
  for (int i = 0; i < 30; ++i) PassFrame();
  Road().StartClock(HostSide::kPlaying, 0, nullptr);  // it runs already
  Road().StopClock();
  Road().StopClock();
  const double seconds = double(HostSide::ticks) / double(kTicksPerSecond);
  EXPECT_NEAR(seconds, double(clock.NowNanos() - start) / 1e9, 0.2);
  EXPECT_EQ(NextByteOf(kPlaybackState), 0);
  EXPECT_EQ(HostSide::pulled, 0);
}

TEST_F(AudioRoadTest, AClockThatIsNoPlaybackDoesNotStart) {
  StartSession();
  Host::ClockRecord scrubbing = HostSide::kPlaying;
  scrubbing.mode = Host::kPlayModePlaying + 1;
  Road().StartClock(scrubbing, 1, &HostSide::kSuite);
  Road().StartClock({nullptr, nullptr, Host::kPlayModePlaying}, 1, &HostSide::kSuite);
  Road().UpdateAudioPushState(true, true);
  Road().UpdateAudioPushState(false, false);
  Road().UpdateAudioPushState(true, false);  // the first that counts
  EXPECT_EQ(NextByteOf(kPlaybackState), 1);
  EXPECT_EQ(HostSide::ticked, 0);
}

TEST_F(AudioRoadTest, SilenceIsToldOnceAndEndsWithTheFirstSound) {
  StartSession();
  Road().StartClock(HostSide::kPlaying, 0, nullptr);
  PassFrame();
  clock.Advance(500 * kNanosPerMilli);
  PassFrame();
  PassFrame();
  EXPECT_EQ(CountInPluginLog("SetAudioOutputEnabled: 0"), 0U);
  clock.Advance(1'100 * kNanosPerMilli);
  PassFrame();
  PassFrame();
  EXPECT_EQ(NextByteOf(kAudioState), 0);
  PassFrame();
  EXPECT_EQ(CountInPluginLog("SetAudioOutputEnabled: 0"), 1U);
  const float samples[] = {0.5F};
  const float* const channels[] = {samples};
  const Host::AudioBlock block{channels, 1, 1};
  Road().PushAudio(&block);
  EXPECT_EQ(NextByteOf(kAudioState), 1);
}

TEST_F(AudioRoadTest, PullingAsksForAFramesSamplesAndSendsThem) {
  StartSession();
  instance->SetVideoFrameRate(kTicksPerSecond / 25);
  Road().SetAudioFormat(44'100, 2);
  const uint16_t before = shared.audio.frameNumber;
  Road().StartClock(HostSide::kPlaying, 7, &HostSide::kSuite);
  PassFrame();
  while (HostSide::pulled < 1) std::this_thread::yield();
  EXPECT_EQ(HostSide::playID, 7);
  EXPECT_EQ(HostSide::wanted, 1'764U);
  while (shared.audio.frameNumber == before) std::this_thread::yield();
  // A host that has none is asked again at the next tick, and nothing is sent.
  HostSide::answer = -1;
  PassFrame();
  PassFrame();
  const uint16_t sent = shared.audio.frameNumber;
  PassFrame();
  Road().StopClock();
  EXPECT_GE(HostSide::pulled, 3);
  EXPECT_EQ(shared.audio.frameNumber, sent);
}

}  // namespace
}  // namespace Veldrift
