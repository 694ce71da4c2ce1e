#include "session/frame_statistics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "platform/file.h"
#include "support/debug_topics.h"
#include "support/paths.h"
#include "tests/support/child.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

constexpr int32_t kFps = 25;
constexpr int64_t kFrame = kNanosPerSecond / kFps;

class FrameStatisticsTest : public testing::Test {
 protected:
  // Frames on the source's grid; every `period`th takes a little longer than a frame lasts, the
  // others just as long.
  void PassFrames(int count, int period) {
    for (int i = 0; i < count; ++i) {
      statistics.Submitted(kFrame + (i % period == 0 ? 1 : 0), kFps);
      statistics.Encoded(50'000);
      clock.Advance(kFrame);
    }
  }
  static size_t Warnings() { return CountInPluginLog("encoder slower than the source: "); }

  const ScratchHome home;
  ManualClock clock;
  FrameStatistics statistics{clock};
};

TEST_F(FrameStatisticsTest, WarnsEveryTenSecondsWhileATenthOfTheFramesIsLate) {
  constexpr int kTenSeconds = 10 * kFps + 1;
  PassFrames(kTenSeconds, 11);
  EXPECT_EQ(Warnings(), 0U);
  PassFrames(kTenSeconds - 1, 10);
  EXPECT_EQ(Warnings(), 0U) << "not yet";
  PassFrames(1, 1);
  EXPECT_EQ(CountInPluginLog("slower than the source: 26 of 251 frames in 10.0 s took longer than "
                             "a frame of 25 fps lasts (mean 40.0 ms, longest 40.0 ms)"),
            1U);
  PassFrames(2 * kTenSeconds, 1);
  EXPECT_EQ(Warnings(), 3U);
  PassFrames(kTenSeconds, 1'000);
  EXPECT_EQ(Warnings(), 3U) << "what was late before doesn't count";
}

// A process sets its topics up once: a child's are its own.
TEST_F(FrameStatisticsTest, DISABLED_WritesItsTopic) {
  const ScopedEnvironment selection("VELDRIFT_DEBUG_TOPICS", "fps");
  InitDebugTopics();
  PassFrames(2 * kFps + 2, 13);
  const std::string file = DebugLogPath("debug_fps.log");
  WriteWholeFile(ChildFolder() / "fps", ReadWholeFile(PathFromText(file)).value_or(""));
}

TEST(FrameStatisticsTopic, HasALineASecondWithTheRatesOfThatSecond) {
  const ScratchFolder folder;
  EXPECT_EQ(StartChild("FrameStatisticsTest.DISABLED_WritesItsTopic", folder.Path())->Wait(), 0);
  const std::string text = ReadWholeFile(folder.Path() / "fps").value_or("");
  const size_t first = text.find(
      "source=25 pushed=26 encoded=25 late=2 push mean=40.0 ms longest=40.0 ms rate=10.0 Mbit/s "
      "over 1.00 s");
  ASSERT_NE(first, std::string::npos) << text;
  EXPECT_NE(text.find("source=25 pushed=26 encoded=26 ", first), std::string::npos) << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 2);
}

}  // namespace
}  // namespace Veldrift
