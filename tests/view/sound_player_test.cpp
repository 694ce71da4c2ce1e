#include "tools/view/sound_player.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <utility>

namespace Veldrift {
namespace {

constexpr int kRate = 48'000;
constexpr int kChannels = 2;
constexpr int64_t kMs = kNanosPerMilli;
constexpr int64_t kBlockMicros = 20'000;
constexpr size_t kBlockFrames = 960;

// A loudspeaker that plays what is queued by a clock moved by hand: silence where nothing waits.
class Speaker : public SoundOutput {
 public:
  int64_t QueuedNs() override {
    return int64_t(double(queued_.size() - played_) / kChannels / rate_ * 1e9);
  }
  void Queue(std::span<const float> samples, int rate, int channels) override {
    EXPECT_EQ(rate, kRate);
    EXPECT_EQ(channels, kChannels);
    queued_.insert(queued_.end(), samples.begin(), samples.end());
  }
  // What was heard meanwhile goes to `heard`, one sample of a frame.
  void Play(int64_t nanos) {
    due_ += double(nanos) * rate_ / 1e9;
    for (; heard.size() < size_t(due_); heard.push_back(Next())) {
    }
  }
  void RunAt(double rate) { rate_ = rate; }

  std::vector<float> heard;
  size_t starved = 0;  // frames for which nothing waited

 private:
  float Next() {
    if (played_ == queued_.size()) {
      ++starved;
      return 0;
    }
    const float sample = queued_[played_];
    EXPECT_EQ(queued_[played_ + 1], -sample);  // the channels stay apart
    played_ += kChannels;
    return sample;
  }

  std::vector<float> queued_;
  size_t played_ = 0;
  double due_ = 0;
  double rate_ = kRate;
};

// Blocks whose samples say where in its second each belongs, due `kLeadNs` after they come.
class SoundPlayerTest : public testing::Test {
 protected:
  void PlayBlock(int64_t leadNs = kLeadNs) {
    SoundBlock block{timeMicros_, {}, kRate, kChannels};
    for (size_t i = 0; i < kBlockFrames; ++i) {
      const float sample = SampleAt(double(timeMicros_) / 1e6 + double(i) / kRate);
      block.samples.insert(block.samples.end(), {sample, -sample});
    }
    player_.Play(std::move(block), nowNs_ + leadNs, nowNs_);
  }
  void Pass(int64_t micros = kBlockMicros) {
    timeMicros_ += micros;
    nowNs_ += micros * kNanosPerMicro;
    speaker_.Play(micros * kNanosPerMicro);
  }
  void Run(double seconds, int64_t leadNs = kLeadNs) {
    for (int64_t left = int64_t(seconds * 1e6); left > 0; left -= kBlockMicros) {
      PlayBlock(leadNs);
      Pass();
    }
  }
  // A ramp over each second: it tells where on the timeline a sample is from.
  static float SampleAt(double seconds) {
    return float(0.2 + 0.6 * (seconds - std::floor(seconds)));
  }
  // How long the last sample that was heard had been due, as far as a second tells.
  double LateMs() const {
    const double dueSecond = double(nowNs_ - kLeadNs + SoundOutput::kDeviceNs) / 1e9;
    const double heard = (speaker_.heard.back() - 0.2) / 0.6;
    const double late = dueSecond - std::floor(dueSecond) - heard;
    return (late - std::round(late)) * 1e3;
  }
  // The largest step from one sample to the next but the ramp's own.
  float LargestStep(size_t from) const {
    float largest = 0;
    for (size_t i = from + 1; i < speaker_.heard.size(); ++i) {
      const float before = speaker_.heard[i - 1], now = speaker_.heard[i];
      if (before < 0.79F || now > 0.21F) largest = std::max(largest, std::abs(now - before));
    }
    return largest;
  }

  static constexpr int64_t kLeadNs = 50 * kMs;

  Speaker speaker_;
  SoundPlayer player_{speaker_};
  int64_t timeMicros_ = 0;
  int64_t nowNs_ = 0;
};

TEST_F(SoundPlayerTest, IsHeardWhenItIsDue) {
  Run(2.5);
  EXPECT_NEAR(LateMs(), 0, 0.5);
  EXPECT_EQ(speaker_.starved, 0U);
  EXPECT_LT(LargestStep(kRate), 1e-3F);
}

TEST_F(SoundPlayerTest, StaysInStepWithADeviceWhoseClockIsOff) {
  for (const double rate : {kRate * 1.005, kRate * 0.995}) {
    speaker_.RunAt(rate);
    Run(20.3);
    EXPECT_NEAR(LateMs(), 0, 15) << rate;
    EXPECT_EQ(speaker_.starved, 0U) << rate;
  }
}

TEST_F(SoundPlayerTest, FollowsADelayThatChanges) {
  Run(1.5);
  const size_t from = speaker_.heard.size();
  Run(6, kLeadNs + 40 * kMs);  // a little: by stretching, which nobody hears
  EXPECT_NEAR(LateMs(), 40, 6);
  EXPECT_LT(LargestStep(from), 1e-2F);
  Run(0.3, kLeadNs + 400 * kMs);  // a lot: at once
  Run(0.7, kLeadNs + 400 * kMs);
  EXPECT_NEAR(LateMs(), 400, 6);
  Run(0.7);
  EXPECT_NEAR(LateMs(), 0, 70);
  Run(5);
  EXPECT_NEAR(LateMs(), 0, 6);
}

TEST_F(SoundPlayerTest, AHoleIsFilledWithWhatWasHeardLastAndFades) {
  Run(1.3);
  const size_t before = speaker_.heard.size();
  Pass();  // a block doesn't come
  Run(1);
  EXPECT_EQ(speaker_.starved, 0U);
  EXPECT_NEAR(LateMs(), 0, 2);
  EXPECT_LT(LargestStep(before), 0.05F);
  // It is silent in the hole, but for the fades.
  EXPECT_GT(std::count(speaker_.heard.begin() + ptrdiff_t(before), speaker_.heard.end(), 0.F),
            ptrdiff_t(kBlockFrames) / 4);
}

TEST_F(SoundPlayerTest, BehindAPauseItIsInStepAgain) {
  Run(1.5);
  Pass(3'000'000);  // nothing comes: the host stands still
  Run(1.3);
  EXPECT_NEAR(LateMs(), 0, 2);
  player_.BeginAnew();
  Pass(500'000);
  Run(1.3);
  EXPECT_NEAR(LateMs(), 0, 2);
}

TEST_F(SoundPlayerTest, WhatHasPiledUpIsLeftOut) {
  Run(1.5);
  // A stall of the network: half a second of sound comes at once, all of it late.
  for (int i = 0; i < 25; ++i) Pass();
  timeMicros_ -= 25 * kBlockMicros;
  for (int i = 25; i > 0; --i) {
    PlayBlock(kLeadNs - i * kBlockMicros * kNanosPerMicro);
    timeMicros_ += kBlockMicros;
  }
  Run(0.5);
  EXPECT_NEAR(LateMs(), 0, 70);
  Run(5);
  EXPECT_NEAR(LateMs(), 0, 6);
  EXPECT_LT(speaker_.QueuedNs(), 100 * kMs);
}

}  // namespace
}  // namespace Veldrift
