// What a phone leaves behind, read by somebody else's code; and a recording as a host's input.
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/file.h"
#include "tests/judge/video_file.h"
#include "tests/stream/stage.h"
#include "tools/phone/phone_exit.h"

namespace Veldrift {
namespace {

constexpr double kWorstDifference = 6;  // levels of 255; the lossy codec's share

// Streams once for all of the subject's tests.
class Recording : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    stage_ = new Stage;
    stage_->StartHost();
    StandIn& phone =
        stage_->StartPhone("a", {"--seconds", "5", "--record", PathText(stage_->File("take.mkv")),
                                 "--snapshots", PathText(stage_->File("pictures"))});
    EXPECT_EQ(phone.Wait(), 0);
    summary_ = new nlohmann::json(phone.Summary());
    file_ = new VideoFile(ReadVideoFile(stage_->File("take.mkv")));
    stage_->EndHost();
  }

  static void TearDownTestSuite() {
    delete file_;
    delete summary_;
    delete stage_;
  }

  static inline Stage* stage_ = nullptr;
  static inline nlohmann::json* summary_ = nullptr;
  static inline VideoFile* file_ = nullptr;
};

TEST_F(Recording, HoldsEveryPictureInOrderAndRight) {
  const nlohmann::json& summary = *summary_;
  ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(summary));
  EXPECT_EQ(summary["recording"]["files"], 1);
  EXPECT_EQ(file_->error, "");
  EXPECT_EQ(file_->codec, "hevc");
  EXPECT_EQ(file_->width, 640);
  EXPECT_EQ(file_->height, 360);
  // Without losses these two are the same number.
  EXPECT_GE(file_->pictures, summary["decoder"]["decoded"]);
  EXPECT_LE(file_->pictures, summary["video"]["frames_whole"]);
  EXPECT_EQ(file_->stamps.size(), size_t(file_->pictures));
  // The first may be the picture that greets a new phone.
  EXPECT_TRUE(std::is_sorted(file_->stamps.begin() + 1, file_->stamps.end()));
  EXPECT_LT(file_->worstDifference, kWorstDifference);
  EXPECT_LT(file_->worstPatch, 2);
  EXPECT_GT(file_->worstPsnr, 35);
}

TEST_F(Recording, SaysItsColoursAreBt709) { EXPECT_TRUE(file_->saysBt709Limited); }

TEST_F(Recording, HasTheSoundAsLongAsThePicture) {
  EXPECT_GT((*summary_)["audio"]["frames_whole"], 0);
  EXPECT_EQ(file_->soundRate, 48'000);
  EXPECT_EQ(file_->soundChannels, 2);
  EXPECT_GT(file_->soundLevel, 0.01);
  EXPECT_GT(file_->videoSeconds, 2);
  EXPECT_NEAR(file_->soundSeconds, file_->videoSeconds, 0.5);
}

TEST_F(Recording, ItsSnapshotsAreImagesOfTheStream) {
  const std::vector<ImageSize> sizes = ReadPngs(stage_->File("pictures"));
  EXPECT_EQ(sizes.size(), (*summary_)["snapshots"]);
  ASSERT_FALSE(sizes.empty());
  for (const ImageSize& size : sizes) EXPECT_EQ(size, (ImageSize{640, 360}));
}

TEST_F(Recording, CanBeStreamedWithItsSound) {
  if (HostIsWindows()) GTEST_SKIP() << "that host has no decoder";
  Stage stage;
  // Once through: then the host goes, and the phone with it.
  ASSERT_NO_FATAL_FAILURE(
      stage.StartHost({"--input", PathText(stage_->File("take.mkv")), "--audio", "file", "--frames",
                       std::to_string(file_->pictures - 3)}));
  StandIn& phone = stage.StartPhone(
      "b", {"--codec", "h264", "--no-reconnect", "--record", PathText(stage.File("copy.mkv"))});
  EXPECT_EQ(phone.Wait(), kExitLost) << testing::PrintToString(phone.Complaints());
  EXPECT_EQ(stage.Host().Wait(), 0);
  EXPECT_EQ(stage.Host().Summary().value("undisposed", -1), 0);
  const nlohmann::json summary = phone.Summary();
  ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(summary, kExitLost));
  EXPECT_EQ(summary["codec"], "H.264");
  EXPECT_EQ(summary["width"], 640);
  EXPECT_EQ(summary["height"], 360);
  EXPECT_GT(summary["audio"]["frames_whole"], 0);
  const VideoFile copy = ReadVideoFile(stage.File("copy.mkv"));
  EXPECT_EQ(copy.error, "");
  EXPECT_GE(copy.pictures, 10);
  EXPECT_GT(copy.soundLevel, 0.01);
  EXPECT_LT(copy.worstDifference, kWorstDifference);
}

// Whether a click lies within a frame of each flash that has sound around it.
class InStep : public testing::TestWithParam<const char*> {};

TEST_P(InStep, AFlashAndItsClickAreLessThanAFrameApart) {
  constexpr double kFrame = 1.0 / 30;
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost(
      {"--size", "320x240", "--fps", "30", "--clapper", "--audio-road", GetParam()}));
  StandIn& phone = stage.StartPhone(
      "a", {"--codec", "h264", "--seconds", "8", "--record", PathText(stage.File("take.mkv"))});
  EXPECT_EQ(phone.Wait(), 0) << testing::PrintToString(phone.Complaints());
  stage.EndHost();
  const VideoFile take = ReadVideoFile(stage.File("take.mkv"));
  EXPECT_EQ(take.error, "");
  const Sync sync = MeasureSync(take);
  EXPECT_LT(sync.worst, kFrame);
  EXPECT_GE(sync.flashes, 2U) << testing::PrintToString(take.flashes);
}

INSTANTIATE_TEST_SUITE_P(Roads, InStep, testing::Values("push", "pull"));

// Each size begins another file, and another stream of the encoder's.
TEST(InStepBehindAChange, OfTheSizeThreeTimes) {
  constexpr double kFrame = 1.0 / 30;
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(
      stage.StartHost({"--size", "320x240", "--fps", "30", "--clapper", "--script",
                       "3 size 480x270, 6 size 640x360, 9 size 320x180", "--frames", "390"}));
  StandIn& phone = stage.StartPhone("a", {"--codec", "h264", "--gop", "long", "--no-reconnect",
                                          "--record", PathText(stage.File("take.mkv"))});
  EXPECT_EQ(phone.Wait(), kExitLost) << testing::PrintToString(phone.Complaints());
  EXPECT_EQ(stage.Host().Wait(), 0);
  const nlohmann::json recording = phone.Summary()["recording"];
  EXPECT_EQ(recording["files"], 4);
  double seconds = 0;
  for (const char* name : {"take.mkv", "take-2.mkv", "take-3.mkv", "take-4.mkv"}) {
    const VideoFile take = ReadVideoFile(stage.File(name));
    EXPECT_EQ(take.error, "") << name;
    const Sync sync = MeasureSync(take);
    EXPECT_LT(sync.worst, kFrame) << name;
    EXPECT_GE(sync.flashes, 1U) << name;
    seconds += std::max(take.times.back() - take.times.front(), take.soundSeconds);
  }
  // Each file begins at its own 0.
  EXPECT_NEAR(recording["seconds"].get<double>(), seconds, 0.2);
}

TEST(Scaling, TheShorterSideIsNoLongerThanThePhoneAllows) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  const auto pictures = stage.File("pictures");
  StandIn& phone = stage.StartPhone("a", {"--max-short-side", "180", "--codec", "h264", "--seconds",
                                          "3", "--snapshots", PathText(pictures)});
  EXPECT_EQ(phone.Wait(), 0);
  const nlohmann::json summary = phone.Summary();
  ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(summary));
  EXPECT_EQ(summary["width"], 320);
  EXPECT_EQ(summary["height"], 180);
  const std::vector<ImageSize> sizes = ReadPngs(pictures);
  ASSERT_FALSE(sizes.empty());
  EXPECT_EQ(sizes.back(), (ImageSize{320, 180}));
  stage.EndHost();
}

}  // namespace
}  // namespace Veldrift
