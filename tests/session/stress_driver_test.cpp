#include "session/stress_driver.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/session/recording_encoder.h"
#include "tests/support/child.h"
#include "tests/support/eventually.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

TEST(StressDriver, TheFirstCharacterIsTheLevel) {
  const std::pair<const char*, int> rows[] = {{"0", 0},  {"", 0},  {"x", 1},
                                              {"15", 1}, {"6", 6}, {"9", 9}};
  for (const auto& [text, level] : rows) EXPECT_EQ(StressLevelOf(text).level, level) << text;
  EXPECT_EQ(StressLevelOf(std::nullopt).level, 0);
  EXPECT_TRUE(StressLevelOf("3").flipRes);
  EXPECT_TRUE(StressLevelOf("5").pro4K);
  EXPECT_FALSE(StressLevelOf("5").flipRes);
  EXPECT_FALSE(StressLevelOf("7").keyframes);
}

TEST(StressDriver, ThePictureIsTheSameForAllPhones) {
  std::vector<uint8_t> pixels(3 * 2 * 4);
  PaintStressPicture(pixels.data(), 3, 2, 257);  // moved by 7
  EXPECT_EQ(std::vector<uint8_t>(pixels.begin(), pixels.begin() + 8),
            (std::vector<uint8_t>{7, 249, 7, 255, 8, 249, 6, 255}));
  EXPECT_EQ(std::vector<uint8_t>(pixels.end() - 4, pixels.end()),
            (std::vector<uint8_t>{9, 250, 2 ^ 1 ^ 7, 255}));
}

class StressDriverTest : public testing::Test {
 protected:
  using Size = std::pair<int, int>;

  StressDriverTest() { seat_.Seat(std::make_unique<RecordingEncoder>(record_)); }
  void AwaitFrames(size_t count) {
    ASSERT_TRUE(Eventually([&] { return record_->FrameCount() >= count; }));
  }
  void AwaitConfigured(size_t count) {
    ASSERT_TRUE(Eventually([&] { return record_->ConfigureCount() >= count; }));
  }

  ScratchHome home_;
  ManualClock clock_;
  std::shared_ptr<EncoderRecord> record_ = std::make_shared<EncoderRecord>();
  PipelineSeat seat_{{}, clock_};
};

TEST_F(StressDriverTest, OneDriverOfTheProcessPushesItsFramesAndTheOtherStaysPassive) {
  const ScopedEnvironment variable("VD_STRESS", "2");
  StressDriver driver(seat_, clock_), other(seat_, clock_);
  driver.StartIfAsked();
  other.StartIfAsked();
  EXPECT_EQ(CountInPluginLog("[STRESS] another instance already owns the stress driver"), 1U);
  AwaitFrames(3);
  driver.Stop();
  record_->With([](EncoderRecord::Data& data) {
    EXPECT_EQ(data.configured.at(0).width, 720);
    EXPECT_EQ(data.configured.at(0).bitrate, 150'000'000U);
    EXPECT_EQ(data.frames.at(2).timestamp, 33'333);
    EXPECT_EQ(data.frames.at(2).stride, 720 * 4);
    EXPECT_GE(data.idrRequests, 3);
  });
  EXPECT_EQ(CountInPluginLog("[STRESS] driver stopped after "), 1U);
  other.StartIfAsked();  // the place is free again
  EXPECT_EQ(CountInPluginLog("(realistic=0 pro4K=0 keyframes=1 flipRes=0)"), 2U);
}

TEST_F(StressDriverTest, FlipsChangeSizeGopAndCodecInTurn) {
  const ScopedEnvironment variable("VD_STRESS", "3");
  clock_.AdvanceTo(11 * kNanosPerSecond);
  StressDriver driver(seat_, clock_);
  driver.StartIfAsked();
  AwaitFrames(1);
  const auto settings = [this] {
    return record_->With([](EncoderRecord::Data& data) { return data.settings; });
  };
  clock_.AdvanceTo(13 * kNanosPerSecond + 1);  // two seconds are numbered 6: a size
  ASSERT_TRUE(Eventually([&] { return settings().width == 540; }));
  clock_.AdvanceTo(15 * kNanosPerSecond + 2);  // 7: the GOP
  ASSERT_TRUE(Eventually([&] { return settings().gopSize == 600; }));
  clock_.AdvanceTo(17 * kNanosPerSecond + 3);  // 8: the codec
  ASSERT_TRUE(Eventually([&] { return settings().codec == kCodecH264; }));
  driver.Stop();
  EXPECT_EQ(settings().height, 960);
  for (const char* line : {"flip res -> 540x960", "flip gop -> 600", "flip codec -> H264"}) {
    EXPECT_EQ(CountInPluginLog(std::string("[STRESS] ") + line), 1U) << line;
  }
  EXPECT_GE(CountInPluginLog("[STRESS] alive: "), 1U);
}

// 33, 16 and 8 ms apart, for five seconds each: the time that this clock's sleepers wait is all
// that passes. Each round ends well within its five seconds.
TEST_F(StressDriverTest, ARealisticSourceKeepsAHostsPace) {
  const ScopedEnvironment variable("VD_STRESS", "4");
  for (const auto& [second, millis] : {std::pair{1, 33}, {6, 16}, {11, 8}}) {
    clock_.AdvanceTo(second * kNanosPerSecond);
    const size_t before = record_->FrameCount();
    StressDriver driver(seat_, clock_);
    const int64_t start = clock_.NowNanos();
    driver.StartIfAsked();
    ASSERT_TRUE(Eventually([&] { return clock_.NowNanos() - start > kNanosPerSecond; }));
    driver.Stop();
    const int64_t passed = (clock_.NowNanos() - start) / kNanosPerMilli;
    EXPECT_NEAR(double(record_->FrameCount() - before), double(passed) / millis, 2) << second;
  }
}

TEST_F(StressDriverTest, WithoutTheVariableNothingStarts) {
  const ScopedEnvironment variable("VD_STRESS", "0");
  StressDriver driver(seat_, clock_);
  driver.StartIfAsked();
  EXPECT_EQ(CountInPluginLog("[STRESS]"), 0U);
}

}  // namespace
}  // namespace Veldrift
