// What judges the module's clock in the host stand-in, and what the host's script says.
#include "tools/host/playhead.h"

#include <gtest/gtest.h>

#include "support/clock.h"
#include "tools/host/fault_book.h"
#include "tools/host/host_action.h"
#include "tools/host/host_suites.h"
#include "tools/host/media_source.h"

namespace Veldrift {
namespace {

constexpr int64_t kFrame = kTicksPerSecond / 30;
constexpr int64_t kFrameNs = kNanosPerSecond / 30;

TEST(Playhead, OnlyTicksMoveItFurtherThanAFrame) {
  Playhead head(kFrame);
  head.Run(1, 0);
  EXPECT_EQ(head.PlaceAt(kFrameNs / 2), 0);
  EXPECT_EQ(head.PlaceAt(kFrameNs + 1'000), 1);
  EXPECT_EQ(head.PlaceAt(90 * kFrameNs), 1) << "without a tick it goes on";
  for (int i = 1; i <= 3; ++i) head.Tick(kFrame, i * kFrameNs);
  EXPECT_EQ(head.PlaceAt(3 * kFrameNs), 3);
  head.Stand(3 * kFrameNs);
  head.Tick(kFrame, 4 * kFrameNs);
  EXPECT_EQ(head.PlaceAt(9 * kFrameNs), 3) << "a standing one was moved";
}

TEST(Playhead, ShuttlesAtItsSpeedAndStopsAtTheBeginning) {
  Playhead head(kFrame);
  head.MoveTo(10);
  head.Run(-4, 0);
  EXPECT_EQ(head.NanosToNextPlace(0), TicksToNanos(0) + 1);
  head.Tick(kFrame, kFrameNs);
  EXPECT_EQ(head.PlaceAt(kFrameNs), 6);
  for (int i = 2; i <= 9; ++i) head.Tick(kFrame, i * kFrameNs);
  EXPECT_EQ(head.PlaceAt(9 * kFrameNs), 0);
}

TEST(Playhead, AnotherRateKeepsTheTime) {
  Playhead head(kFrame);
  head.MoveTo(60);
  head.SetTicksPerFrame(kTicksPerSecond / 24);
  EXPECT_EQ(head.PlaceAt(0), 48);
}

struct Segment {
  const char* what;
  double tickedSeconds;
  const char* verdict;  // its beginning; empty: none
};

TEST(ClockSegment, ALagAndALeadAreFaultsAndTheEndOfASegmentIsNone) {
  constexpr int64_t kEndNs = 20 * kNanosPerSecond;
  for (const Segment& given :
       {Segment{"exact", 20, ""}, Segment{"the last tick is missing", 19.9, ""},
        Segment{"died", 11, "moved the host's clock by 11000 ms in 20000 ms"},
        Segment{"a tenth", 2, "moved the host's clock by 2000 ms"},
        Segment{"too fast", 20.1, "moved the host's clock 100 ms too far"}}) {
    ClockSegment segment;
    segment.ticks = int64_t(given.tickedSeconds * double(kTicksPerSecond));
    const std::string verdict = segment.Verdict(kEndNs, kEndNs, kFrame);
    EXPECT_EQ(verdict.empty(), *given.verdict == '\0') << given.what << ": " << verdict;
    EXPECT_TRUE(verdict.starts_with(given.verdict)) << given.what << ": " << verdict;
  }
}

TEST(ClockSegment, PulledSoundKeepsPaceWithTheTicks) {
  constexpr int64_t kTicks = 10 * kTicksPerSecond;
  EXPECT_EQ(VerdictOnPulled(480'000, kTicks, 48'000, kFrame), "");
  EXPECT_EQ(VerdictOnPulled(475'000, kTicks, 48'000, kFrame), "");
  EXPECT_EQ(VerdictOnPulled(470'400, kTicks, 48'000, kFrame),
            "pulled sound 200 ms behind the clock that it drives");
  EXPECT_EQ(VerdictOnPulled(489'600, kTicks, 48'000, kFrame),
            "pulled sound 200 ms ahead of the clock that it drives");
}

using Kind = HostAction::Kind;

TEST(Script, IsReadInTheOrderOfTime) {
  std::string error;
  const auto script =
      ParseScript("3 step -1,1 pause, 4 size 640x360 ,5 fps 24,6 shuttle -2, 7 scrub -2", error);
  ASSERT_TRUE(script) << error;
  const std::vector<HostAction> expected = {
      {Kind::Pause},    {Kind::Step, -1}, {Kind::Size, 0, 640, 360}, {Kind::Rate, 24},
      {Kind::Play, -2}, {Kind::Step, -1}, {Kind::Step, -1}};
  ASSERT_EQ(script->size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ((*script)[i].action, expected[i]) << i;
  }
  EXPECT_DOUBLE_EQ(script->front().seconds, 1);
  EXPECT_TRUE(ParseScript("", error)->empty());
}

TEST(Script, WhatIsNoActionIsRefused) {
  for (const char* text : {"pause", "1", "x pause", "-1 pause", "nan pause", "1 pause 2", "1 jump",
                           "1 step 1.5", "1 size 7", "1 size 1280", "1 fps 0", "1 goto",
                           "1 fps nan", "1 pause,,2 play", "1 shuttle 9"}) {
    std::string error;
    EXPECT_EQ(ParseScript(text, error), std::nullopt) << text;
    EXPECT_NE(error, "") << text;
  }
}

// The module's side of the suites, held against what it may do.
TEST(HostSuites, ASuiteThatIsNotHeldIsNotToBeCalledAndOneThatIsKeptIsSeen) {
  HostSuites& suites = HostSuites::Instance();
  const Host::SuiteAccess& access = *suites.Utilities().GetSuiteAccess();
  const auto faults = [] { return FaultBook::Instance().All().size(); };
  const size_t before = faults();
  const void* found = nullptr;
  ASSERT_EQ(access.AcquireSuite(Host::kTimeSuiteName, Host::kTimeSuiteVersion, &found), 0);
  const auto& time = *static_cast<const Host::TimeSuite*>(found);
  int64_t ticks = 0;
  EXPECT_EQ(time.GetTicksPerSecond(&ticks), 0);
  EXPECT_EQ(faults(), before);
  EXPECT_EQ(suites.JudgeHeld(), 1);
  EXPECT_EQ(faults(), before + 1);
  EXPECT_EQ(access.ReleaseSuite(Host::kTimeSuiteName, Host::kTimeSuiteVersion), 0);
  EXPECT_EQ(suites.JudgeHeld(), 0);
  time.GetTicksPerSecond(&ticks);
  EXPECT_EQ(faults(), before + 2);
  EXPECT_NE(access.ReleaseSuite(Host::kTimeSuiteName, Host::kTimeSuiteVersion), 0);
  EXPECT_NE(access.ReleaseSuite("Another Suite", 1), 0);
  EXPECT_EQ(faults(), before + 4);
  EXPECT_NE(access.AcquireSuite(Host::kTimeSuiteName, 7, &found), 0);
  EXPECT_EQ(suites.JudgeHeld(), 0);
}

}  // namespace
}  // namespace Veldrift
