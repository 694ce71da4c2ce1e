#include "tools/receiver/live_figures.h"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

// A sender of 30 frames of ten datagrams of 1,000 bytes a second, seen each 20 ms; then the cable
// is out, then it is back, with losses.
struct Wire {
  LiveFigures figures;
  LiveSample sample;
  int64_t nowNs = 0;

  void Run(double seconds, uint64_t received, uint64_t lost) {
    const int64_t endNs = nowNs + int64_t(seconds * 1e9);
    for (; nowNs < endNs; nowNs += 20 * kNanosPerMilli) {
      if (nowNs / 1'000'000 % 100 == 0) {  // each 100 ms, three frames
        sample.framesWhole += 3 * received / 10;
        sample.framesLost += 3 * lost / 10;
        sample.datagrams += 3 * received;
        sample.missingDatagrams += 3 * lost;
        sample.bytes += 3 * received * 1'000;
      }
      figures.Add(sample, nowNs);
    }
  }
};

TEST(LiveFigures, LeaveOutWhatAStandstillHasCost) {
  Wire wire;
  wire.Run(10, 10, 0);
  wire.figures.BeginAnew(wire.nowNs);
  wire.Run(0.5, 3, 7);
  wire.Run(0.6, 10, 0);
  EXPECT_EQ(wire.figures.DatagramsMissingPercent(), 0);
  EXPECT_EQ(wire.figures.FramesLostPercent(), 0);
  EXPECT_FALSE(wire.figures.Full());
  wire.Run(3, 10, 0);
  EXPECT_TRUE(wire.figures.Full());
  EXPECT_NEAR(wire.figures.FramesPerSecond(), 30, 1);
}

TEST(LiveFigures, AreOfTheLastSecondsAndNothingBefore) {
  Wire wire;
  EXPECT_EQ(wire.figures.FramesPerSecond(), 0);
  wire.Run(1, 10, 0);
  EXPECT_FALSE(wire.figures.Full());
  wire.Run(60, 10, 0);
  EXPECT_TRUE(wire.figures.Full());
  EXPECT_NEAR(wire.figures.FramesPerSecond(), 30, 1);
  EXPECT_NEAR(wire.figures.MegabitsPerSecond(), 2.4, 0.1);
  EXPECT_EQ(wire.figures.FramesLostPercent(), 0);
  wire.Run(3.2, 0, 0);
  EXPECT_EQ(wire.figures.FramesPerSecond(), 0);
  EXPECT_EQ(wire.figures.MegabitsPerSecond(), 0);
  wire.Run(3.2, 0, 10);
  EXPECT_EQ(wire.figures.FramesLostPercent(), 100);
  EXPECT_EQ(wire.figures.DatagramsMissingPercent(), 100);
  wire.Run(3.2, 10, 0);
  EXPECT_EQ(wire.figures.FramesLostPercent(), 0);
  EXPECT_NEAR(wire.figures.FramesPerSecond(), 30, 1);
}

// Datagrams that come late fill gaps, so that a counter goes back.
TEST(LiveFigures, WhatIsMissingCanBecomeLess) {
  LiveFigures figures;
  figures.Add({0, 100, 50, 0, 0}, 0);
  figures.Add({0, 200, 10, 0, 0}, kNanosPerSecond);
  EXPECT_EQ(figures.DatagramsMissingPercent(), 0);
}

}  // namespace
}  // namespace Veldrift
