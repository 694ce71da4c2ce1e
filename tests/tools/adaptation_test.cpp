// What is asked of the plug-in on networks of all kinds, in virtual time.
#include "tools/receiver/adaptation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "tests/tools/simulated_link.h"

namespace Veldrift {
namespace {

TEST(Adaptation, KnowsWhatParityIsWorth) {
  EXPECT_EQ(PictureLossShare(50'000, 0), 0);
  EXPECT_EQ(PictureLossShare(50'000, 1), 1);
  // One of data and one of parity; two and one; five and one.
  EXPECT_NEAR(PictureLossShare(1'000, 0.1), 0.01, 1e-9);
  EXPECT_NEAR(PictureLossShare(2'000, 0.1), 3 * 0.01 * 0.9 + 0.001, 1e-9);
  EXPECT_NEAR(PictureLossShare(7'200, 0.05), 1 - std::pow(0.95, 6) - 6 * 0.05 * std::pow(0.95, 5),
              1e-9);
  // Many datagrams lose near their mean; without parity none may.
  EXPECT_LT(PictureLossShare(200 * 1'440, 0.05), 0.01);
  EXPECT_GT(PictureLossShare(200 * 1'440, 0.12), 0.7);
  EXPECT_GT(PictureLossShare(300 * 1'440, 0.05), 0.999);
}

struct Case {
  const char* name;
  SimulatedLink link;
  double least;  // share of the pictures of 60 s, the learning included
  double p99Ms;
  bool intra;
};

const Case kCases[] = {
    {"free", {0, 0, 0}, 0.995, 50, false},
    {"5 Mbit/s, small queue", {5, 64e3, 0}, 0.9, 150, false},
    {"5 Mbit/s, large queue", {5, 1e6, 0}, 0.9, 250, false},
    {"15 Mbit/s, small queue", {15, 64e3, 0}, 0.95, 150, false},
    {"15 Mbit/s, large queue", {15, 1e6, 0}, 0.95, 150, false},
    {"50 Mbit/s, small queue", {50, 64e3, 0}, 0.95, 150, false},
    {"50 Mbit/s, large queue", {50, 1e6, 0}, 0.95, 150, false},
    {"400 Mbit/s, small queue", {400, 64e3, 0}, 0.95, 150, false},
    {"1 % lost", {0, 0, 0.01}, 0.95, 50, true},
    {"3 % lost", {0, 0, 0.03}, 0.95, 50, true},
    {"5 % lost", {0, 0, 0.05}, 0.93, 50, true},
    {"50 Mbit/s and 3 % lost", {50, 256e3, 0.03}, 0.9, 150, true},
};

void Print(const SimulatedStream& stream) {
  for (size_t i = 0; i < stream.steps.size(); ++i) {
    std::printf("%6.2f %s\n", stream.stepSeconds[i], stream.steps[i].sentence.c_str());
  }
}

TEST(Adaptation, KeepsAPictureOnEveryNetwork) {
  for (const Case& each : kCases) {
    SCOPED_TRACE(each.name);
    SimulatedStream stream(true);
    stream.link = each.link;
    stream.Run(60);
    EXPECT_GE(stream.Share(), each.least);
    EXPECT_LE(stream.P99(), each.p99Ms);
    EXPECT_GE(stream.firstSeconds, 0);
    EXPECT_LT(stream.firstSeconds, 3);
    EXPECT_EQ(stream.Setting().intra, each.intra);
    if (testing::Test::HasFailure()) Print(stream);
  }
}

size_t StepsDown(const SimulatedStream& stream, double from) {
  size_t count = 0;
  for (size_t i = 1; i < stream.steps.size(); ++i) {
    const StreamSetting& before = stream.steps[i - 1].setting;
    const StreamSetting& after = stream.steps[i].setting;
    const bool down = after.shortSide < before.shortSide ||
                      (after.shortSide == before.shortSide && after.quality < before.quality);
    count += down && stream.stepSeconds[i] >= from ? 1 : 0;
  }
  return count;
}

TEST(Adaptation, WhatFailedIsTriedAgainEverMoreSeldom) {
  SimulatedStream stream(true);
  stream.link = {15, 64e3, 0};
  stream.Run(300);
  EXPECT_LE(StepsDown(stream, 0), 6U);
  EXPECT_GE(StepsDown(stream, 0), 3U);  // but it is tried
  EXPECT_LE(StepsDown(stream, 150), 2U);
}

TEST(Adaptation, GoesDownFastAndUpSlowly) {
  SimulatedStream stream(true);
  stream.Run(10);
  EXPECT_EQ(stream.Setting(), (StreamSetting{1080, 80, false}));
  for (size_t i = 1; i < stream.steps.size(); ++i) {
    EXPECT_GE(stream.stepSeconds[i] - stream.stepSeconds[i - 1], 1);
  }
  stream.link = {5, 1e6, 0};
  stream.Run(4);  // what had been sent for more stands in the queue
  EXPECT_LT(stream.Setting().shortSide, 1080);
  const size_t steps = stream.steps.size();
  stream.Forget();
  stream.Run(6);
  EXPECT_GE(stream.Share(), 0.95);
  EXPECT_LE(stream.P99(), 250);
  EXPECT_LE(stream.steps.size() - steps, 2U);
  EXPECT_TRUE(std::ranges::any_of(stream.steps, [](const Adaptation::Step& step) {
    return step.sentence.starts_with("network carries 4.") ||
           step.sentence.starts_with("network carries 5.");
  }));
  stream.link = {};
  stream.Run(9);
  EXPECT_LT(stream.Setting().shortSide, 1080);
  stream.Run(180);
  EXPECT_EQ(stream.Setting(), (StreamSetting{1080, 80, false}));
}

// The first pictures of a size fill the queue of a link that carries the rest with ease.
TEST(Adaptation, TakesASizesLargeFirstPicturesForNoFullNetwork) {
  SimulatedStream stream(true);
  stream.link = {15, 1e6, 0};
  stream.keyFrameBytes = 98e3;
  stream.otherBytes = 10e3;
  stream.forgets = true;
  stream.Run(30);
  EXPECT_EQ(StepsDown(stream, 0), 0U);
  EXPECT_EQ(stream.Setting().shortSide, 1080);
  EXPECT_LE(stream.P99(), 150);
  if (testing::Test::HasFailure()) Print(stream);
}

// The host had sent large pictures before it was told what to send: they stand in the queue.
TEST(Adaptation, TakesWhatAConnectionBeginsWithForNoFullNetworkWhileItDrains) {
  for (const bool drains : {true, false}) {
    SCOPED_TRACE(drains);
    Adaptation policy({});
    policy.BeginConnection(false, 0);
    ArrivalCounters counters;
    std::optional<Adaptation::Step> step;
    for (int64_t i = 0; i < 20 && !step; ++i) {
      const int64_t delayMs = i == 0 ? 1 : 340 - (drains ? 15 * i : 0);
      const int64_t sentNs = i * kNanosPerSecond / 30, nowNs = sentNs + delayMs * kNanosPerMilli;
      counters.datagrams += 2;
      counters.bytes += 2'000;
      ++counters.framesWhole;
      policy.NotePicture({2'000, false, nowNs, nowNs, uint32_t(sentNs / 1'000)});
      step = policy.Decide(counters, nowNs);
    }
    EXPECT_EQ(step.has_value(), !drains);
  }
}

// There is room for all of them but the key frames: at 15 Mbit/s those of quality 60 take 78 ms.
TEST(Adaptation, AsksForNoKeyFramesThatHoldUpTheRest) {
  for (const auto& [megabits, most] : {std::pair(15, StreamSetting{1080, 70, false}),
                                       std::pair(50, StreamSetting{1080, 80, false}),
                                       std::pair(5, StreamSetting{720, 50, false})}) {
    SCOPED_TRACE(megabits);
    SimulatedStream stream(true);
    stream.link = {double(megabits), 1e6, 0};
    stream.keyFrameBytes = 98e3;
    stream.otherBytes = 2e3;
    stream.forgets = true;
    stream.Run(30);
    EXPECT_EQ(stream.Setting(), most);
    if (testing::Test::HasFailure()) Print(stream);
  }
}

// One that lost and got better takes the key frames only back.
TEST(Adaptation, ForgivesARadio) {
  SimulatedStream stream(true);
  stream.link = {0, 0, 0.03};
  stream.Run(10);
  EXPECT_TRUE(stream.Setting().intra);
  stream.link = {};
  stream.Run(15);
  EXPECT_TRUE(stream.Setting().intra);
  stream.Run(15);
  EXPECT_FALSE(stream.Setting().intra);
}

// A wish for more than the user or the source allow is none.
TEST(Adaptation, KeepsToItsLimits) {
  for (const int side : {144, 480, 720, 2160}) {
    for (const int quality : {5, 40, 100}) {
      Adaptation policy({uint16_t(side), uint8_t(quality)});
      policy.BeginConnection(false, 0);
      ArrivalCounters counters;
      for (int64_t nowNs = 0; nowNs < 60 * kNanosPerSecond; nowNs += kNanosPerSecond / 30) {
        ++counters.framesWhole;
        ++counters.datagrams;
        policy.NotePicture({1'000, false, nowNs, nowNs, uint32_t(nowNs / 1'000)});
        policy.Decide(counters, nowNs);
        ASSERT_LE(policy.Setting().shortSide, side);
        ASSERT_LE(policy.Setting().quality, quality);
      }
      EXPECT_EQ(policy.Setting(), (StreamSetting{uint16_t(side), uint8_t(quality), false}));
    }
  }
}

}  // namespace
}  // namespace Veldrift
