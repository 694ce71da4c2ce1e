// Sound that the host pushes and sound that is pulled from it, and what the phone is told of them.
#include "session/audio_path.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "tests/session/session_fixture.h"

namespace Veldrift {
namespace {

constexpr int64_t kTicksPerSecond = 254'016'000'000;

// What the host's clock and its audio suite saw. The suite's calls carry no object.
struct HostSide {
  static inline std::atomic<int> ticked{0}, pulls{0};
  static inline std::atomic<int32_t> playID{0};
  static inline std::atomic<int64_t> samples{0};  // handed out so far
  static inline std::atomic<Host::Error> answer{Host::kNoError};
  static inline std::atomic<ManualClock*> slow{
      nullptr};  // moved on by answers that take longer and longer

  static void Reset() {
    ticked = pulls = 0;
    samples = 0;
    answer = Host::kNoError;
    slow = nullptr;
  }
  static void Tick(void*, int64_t) { ++ticked; }
  static Host::Error Pull(int32_t id, int64_t start, float** buffers, uint32_t count) {
    EXPECT_EQ(start, 0);
    playID = id;
    if (ManualClock* const clock = slow) clock->Advance(pulls * 5 * kNanosPerMilli);
    ++pulls;
    if (answer < 0) return answer;
    for (int channel = 0; channel < 2; ++channel) std::fill_n(buffers[channel], count, 0.25F);
    samples += count;
    return Host::kNoError;
  }
  static constexpr Host::AudioSuite kSuite{Pull};
  static constexpr Host::ClockRecord kPlaying{Tick, nullptr, Host::kPlayModePlaying};
};

class AudioPathTest : public SessionFixture {
 protected:
  AudioPathTest() {
    HostSide::Reset();
    FakeHost::audio = &HostSide::kSuite;
  }
  ~AudioPathTest() override { FakeHost::audio = nullptr; }

  void StartClock(int32_t playID) { ASSERT_TRUE(instance->StartClock(HostSide::kPlaying, playID)); }
  // Moves the time on by a frame, and `late`, and waits for what the tick does.
  void PassFrame(int64_t late = 0) {
    const int before = HostSide::ticked;
    clock.Advance(kNanosPerSecond / 30 + 1 + late);
    ASSERT_TRUE(Eventually([&] { return HostSide::ticked > before; }));
  }
  void PushSamples(uint32_t channels = 1) {
    const float samples[] = {0.5F};
    const std::vector<const float*> pointers(channels, samples);
    const Host::AudioBlock block{pointers.data(), 1, channels};
    instance->PushAudio(&block);
  }
  uint16_t SentFrames() { return shared.Sender().SoundFrames(); }
  int NextByteOf(uint8_t opcode) {
    const auto message = phone.NextOf(opcode);
    return message ? message->payload[0] : -1;
  }
};

TEST_F(AudioPathTest, SilenceIsToldOnceAndEndsWithTheFirstSound) {
  StartSession();
  StartClock(0);
  PassFrame();
  PassFrame(1'400 * kNanosPerMilli);
  PassFrame();  // 1.5 s, and not yet longer
  EXPECT_EQ(CountInPluginLog("SetAudioOutputEnabled: 0"), 0U);
  PassFrame();
  EXPECT_EQ(NextByteOf(kAudioState), 0);
  PassFrame();
  PassFrame();
  EXPECT_EQ(CountInPluginLog("SetAudioOutputEnabled: 0"), 1U);
  PushSamples();
  EXPECT_EQ(NextByteOf(kAudioState), 1);
  instance->StopClock();
}

// The second start is none: the sound that has come since the first is not forgotten.
TEST_F(AudioPathTest, ASecondStartOfARunningClockMakesNoSilence) {
  StartSession();
  HoldMedia();
  StartClock(0);
  PassFrame();
  PushSamples();
  StartClock(0);
  PassFrame(2 * kNanosPerSecond);
  PassFrame();
  EXPECT_EQ(CountInPluginLog("SetAudioOutputEnabled: 0"), 0U);
  instance->StopClock();
}

// To the sample, after any number of ticks at any distance: else the content falls behind the
// picture.
TEST_F(AudioPathTest, PullingAsksForAllTheSamplesThatHaveBecomeDue) {
  StartSession();
  HoldMedia();  // the pacer's waiting would pass time
  instance->SetVideoFrameRate(kTicksPerSecond * 1'001 / 30'000);
  instance->SetAudioFormat(44'100, 2);
  const int64_t start = clock.NowNanos();
  StartClock(7);
  for (int i = 0; i < 40 && !HasFatalFailure(); ++i) PassFrame(i % 3 * 7 * kNanosPerMilli);
  const auto due = [&] { return (clock.NowNanos() - start) * 44'100 / kNanosPerSecond; };
  EXPECT_TRUE(Eventually([&] { return HostSide::samples == due(); }))
      << HostSide::samples << " of " << due();
  EXPECT_EQ(HostSide::playID, 7);
  EXPECT_TRUE(Eventually([&] { return SentFrames() == 40; }));
  // What a host doesn't have yet stays due; nothing is sent for it.
  HostSide::answer = -1;
  for (int i = 0; i < 3 && !HasFatalFailure(); ++i) PassFrame();
  EXPECT_TRUE(Eventually([&] { return HostSide::pulls == 43; }));
  EXPECT_EQ(SentFrames(), 40);
  HostSide::answer = Host::kNoError;
  PassFrame();
  EXPECT_TRUE(Eventually([&] { return HostSide::samples == due(); }));
  instance->StopClock();
}

// A block is stamped with its first sample's time, as a pushed one is: else it would come a tick
// late.
TEST_F(AudioPathTest, PulledSoundStandsWhereItsFirstSampleBelongs) {
  StartSession();
  HoldMedia();
  const int64_t start = shared.GetClock().NowNanos();
  HostSide::slow = &clock;
  StartClock(7);
  for (int i = 1; i <= 3 && !HasFatalFailure(); ++i) {
    PassFrame();
    ASSERT_TRUE(Eventually([&] { return HostSide::pulls == i; }));
  }
  instance->StopClock();
  const std::vector<DatagramHeader> sent = ReleaseMedia();
  ASSERT_FALSE(sent.empty());
  // The pacer keeps the last blocks; each begins where the one before it ends.
  constexpr uint32_t kStarts[] = {0, 33'333, 66'666};
  const int64_t micros = (clock.NowNanos() - start) / kNanosPerMicro;
  const uint32_t origin = sent.front().timestamp - kStarts[sent.front().frameNumber];
  for (const DatagramHeader& datagram : sent) {
    const auto at = int64_t(datagram.timestamp - origin);
    ASSERT_LT(datagram.frameNumber, std::size(kStarts));
    EXPECT_NEAR(double(at), kStarts[datagram.frameNumber], 50);
    EXPECT_LT(at, micros - 33'000);
  }
}

TEST_F(AudioPathTest, AHostThatPushesIsNotPulledFromAndPullingGoesOnBehindIt) {
  StartSession();
  StartClock(7);
  HostSide::answer = -1;  // what is owed here will be pushed
  PassFrame();
  EXPECT_TRUE(Eventually([&] { return HostSide::pulls == 1; }));
  HostSide::answer = Host::kNoError;
  instance->UpdateAudioPushState(true, false);
  for (int i = 0; i < 3 && !HasFatalFailure(); ++i) PassFrame();
  PushSamples();
  EXPECT_EQ(SentFrames(), 1);
  instance->UpdateAudioPushState(false, false);
  PassFrame();
  EXPECT_TRUE(Eventually([&] { return HostSide::pulls == 2; }));
  // No more than this one frame's: the rest has been pushed.
  EXPECT_LE(HostSide::samples, 48'000 / 30 + 1);
  instance->StopClock();
}

TEST_F(AudioPathTest, SoundGoesOutOnlyWhileTheInstanceRunsAndAPhoneIsThere) {
  instance = std::make_unique<TransmitInstance>(FakeHost::Suites(), Services());
  instance->Start();
  PushSamples();
  EXPECT_EQ(SentFrames(), 0);
  PairPhone();
  PushSamples();
  EXPECT_EQ(SentFrames(), 1);
  instance->Stop();
  PushSamples();
  EXPECT_EQ(SentFrames(), 1);
}

// A block's head counts channels in a byte.
TEST_F(AudioPathTest, MoreChannelsThanABlockCanSayAreNoSound) {
  StartSession();
  StartClock(0);
  PassFrame();
  PassFrame(1'600 * kNanosPerMilli);
  EXPECT_EQ(NextByteOf(kAudioState), 0);
  PushSamples(256);
  EXPECT_EQ(SentFrames(), 0);
  PushSamples(255);
  EXPECT_EQ(NextByteOf(kAudioState), 1);
  EXPECT_EQ(SentFrames(), 1);
  EXPECT_EQ(CountInPluginLog("SetAudioOutputEnabled: 1"), 1U);
  instance->StopClock();
}

TEST_F(AudioPathTest, ScrubbingIsNoPlaybackAndPushingAndTheClockCountOnce) {
  StartSession();
  instance->UpdateAudioPushState(true, true);
  instance->UpdateAudioPushState(false, false);
  EXPECT_EQ(ToldBytes(kPlaybackState), "");
  instance->UpdateAudioPushState(true, false);
  EXPECT_EQ(ToldBytes(kPlaybackState), "1");
  StartClock(0);
  instance->StopClock();
  EXPECT_EQ(ToldBytes(kPlaybackState), "0");
  instance->UpdateAudioPushState(false, false);
  EXPECT_EQ(ToldBytes(kPlaybackState), "");
}

}  // namespace
}  // namespace Veldrift
