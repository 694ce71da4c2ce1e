// Sound of which fragments are missing, through the assembler.
#include "tools/receiver/sound_concealment.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <vector>

#include "tests/tools/sender.h"
#include "tools/receiver/frame_assembler.h"

namespace Veldrift {
namespace {

constexpr size_t kSamples = 1'600;  // a block: K = 9, of which the last is short
constexpr AudioBlockHead kHead{48'000, 2};

// A tone of 440 Hz on the left, and of half the height on the right.
float Tone(size_t sample, size_t channel) {
  const double angle = 2 * std::numbers::pi * 440 * double(sample) / kHead.sampleRate;
  return float(std::sin(angle)) / float(channel + 1);
}

std::vector<std::byte> BlockOf(size_t number) {
  std::vector<std::byte> block(kAudioHeadBytes + kSamples * 2 * sizeof(float));
  WriteAudioHead(kHead, block.data());
  for (size_t i = 0; i < kSamples * 2; ++i) {
    const float value = Tone(number * kSamples + i / 2, i % 2);
    std::memcpy(block.data() + kAudioHeadBytes + i * sizeof(float), &value, sizeof value);
  }
  return block;
}

class SoundStream : public testing::Test {
 protected:
  SoundStream()
      : assembler_(StreamType::Audio, {},
                   [this](WholeFrame&& frame) { frames_.push_back(std::move(frame)); }) {}

  // The next block, without the fragments of `lost`.
  void Send(const std::vector<size_t>& lost = {}) {
    const std::vector<std::byte> block = BlockOf(number_);
    FrameToSend frame;
    frame.streamType = StreamType::Audio;
    frame.frameNumber = uint16_t(number_);
    frame.timestamp = uint32_t(number_ * 33'333);
    frame.data = block;
    FrameGroup group = MakeFrameGroup(frame);
    FragmentFrame(frame, sequence_, 0, group);
    size_t index = 0;
    group.ForEach([&](std::span<const std::byte> datagram) {
      if (std::ranges::find(lost, index++) == lost.end()) assembler_.Add(datagram, nowNs_);
      return true;
    });
    ++number_;
    nowNs_ += 100 * kNanosPerMilli;
    assembler_.Poll(nowNs_);
  }

  // The largest difference from the tone in a delivered block.
  static double WorstOf(const WholeFrame& frame) {
    double worst = 0;
    for (size_t i = 0; i < (frame.data.size() - kAudioHeadBytes) / sizeof(float); ++i) {
      float value = 0;
      std::memcpy(&value, frame.data.data() + kAudioHeadBytes + i * sizeof(float), sizeof value);
      const float right = Tone(frame.frameNumber * kSamples + i / 2, i % 2);
      worst = std::max(worst, double(std::abs(value - right)));
    }
    return worst;
  }

  size_t number_ = 0;
  uint32_t sequence_ = 0;
  int64_t nowNs_ = kNanosPerSecond;
  std::vector<WholeFrame> frames_;
  FrameAssembler assembler_;
};

TEST_F(SoundStream, WhatCameOfABlockIsHandedOnInTurnAndTheGapsAreBridged) {
  const struct {
    std::vector<size_t> lost;
    double seconds;
  } kCases[] = {{{0}, 179.0 / 48'000},     // the head with it
                {{4}, 181.0 / 48'000},     // split samples count as missing
                {{3, 4}, 361.0 / 48'000},  // one gap
                {{1, 6}, 362.0 / 48'000},  // two
                {{8}, 160.0 / 48'000},     // the end, whose length nothing tells
                {{0, 1, 2, 3, 4, 5, 6}, 1'260.0 / 48'000}};
  for (const auto& each : kCases) {
    SCOPED_TRACE(each.lost.front());
    frames_.clear();
    const double before = assembler_.Counters().secondsConcealed;
    Send();
    const size_t number = number_;
    Send(each.lost);
    Send();
    Send();
    ASSERT_EQ(frames_.size(), 4U);
    const WholeFrame& mended = frames_[1];
    EXPECT_EQ(mended.frameNumber, number);
    EXPECT_EQ(mended.timestamp, number * 33'333);
    EXPECT_TRUE(mended.concealed);
    EXPECT_FALSE(frames_[0].concealed);
    ASSERT_EQ(mended.data.size(), BlockOf(number).size());
    EXPECT_TRUE(std::equal(mended.data.begin(), mended.data.begin() + kAudioHeadBytes,
                           frames_[0].data.begin()));
    EXPECT_NEAR(assembler_.Counters().secondsConcealed - before, each.seconds, 3.0 / 48'000);
    // No more than the missing samples are touched, and none is wild.
    const std::vector<std::byte> sent = BlockOf(number);
    size_t touched = 0;
    for (size_t i = kAudioHeadBytes; i < sent.size(); i += sizeof(float)) {
      touched += std::memcmp(&sent[i], &mended.data[i], sizeof(float)) != 0 ? 1 : 0;
    }
    EXPECT_LE(double(touched) / 2, each.seconds * 48'000 + 3);
    EXPECT_GT(touched, 0U);
    EXPECT_LT(WorstOf(mended), 2.01);
  }
  EXPECT_EQ(assembler_.Counters().framesLost, 0U);
}

// A gap begins and ends where the sound is: a step would be heard as a click.
TEST_F(SoundStream, NothingJumpsAtTheEdgesOfAGap) {
  Send();
  Send({4});
  Send();
  ASSERT_EQ(frames_.size(), 3U);
  std::vector<float> left;
  for (size_t i = kAudioHeadBytes; i < frames_[1].data.size(); i += 2 * sizeof(float)) {
    std::memcpy(&left.emplace_back(), frames_[1].data.data() + i, sizeof(float));
  }
  const double steepest = 2 * std::numbers::pi * 440 / 48'000;
  for (size_t i = 1; i < left.size(); ++i) {
    ASSERT_LT(std::abs(left[i] - left[i - 1]), 2 * steepest) << "sample " << i;
  }
}

TEST_F(SoundStream, ABlockOfWhichNothingCameIsLostAndItsLengthIsCounted) {
  Send();
  Send({0, 1, 2, 3, 4, 5, 6, 7, 8});
  Send();
  Send();
  EXPECT_EQ(frames_.size(), 3U);
  EXPECT_EQ(assembler_.Counters().framesLost, 1U);
  EXPECT_NEAR(assembler_.Counters().secondsLost, 1'600.0 / 48'000, 1e-6);
  EXPECT_EQ(assembler_.Counters().framesConcealed, 0U);
}

// Before the first whole block nobody knows what the rest of one looks like.
TEST_F(SoundStream, ABlockBeforeAnyWholeOneIsLost) {
  Send({3});
  Send();
  Send();
  EXPECT_EQ(frames_.size(), 2U);
  EXPECT_EQ(assembler_.Counters().framesLost, 1U);
}

}  // namespace
}  // namespace Veldrift
