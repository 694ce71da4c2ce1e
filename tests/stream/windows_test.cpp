// The Windows module's encoders, of each kind, seen from the phone.
#include <gtest/gtest.h>

#include <string>

#include "platform/file.h"
#include "tests/judge/video_file.h"
#include "tests/stream/stage.h"
#include "tests/support/child.h"
#include "tools/phone/phone_exit.h"

namespace Veldrift {
namespace {

// "ENGINE CODEC": as VD_TRANSFORMS and the phone say it.
struct Encoder {
  const char* kind;
  const char* codec;
  const char* described;
};

void PrintTo(const Encoder& encoder, std::ostream* out) {
  *out << encoder.kind << " " << encoder.codec;
}

class WindowsEncoder : public testing::TestWithParam<Encoder> {
 protected:
  void SetUp() override {
    if (!HostIsWindows()) GTEST_SKIP() << "this system's host has other encoders";
  }
};

TEST_P(WindowsEncoder, PicturesArriveAsTheyWerePushed) {
  const ScopedEnvironment shown("VD_TRANSFORMS", GetParam().kind);
  Stage stage;
  stage.SetInstallation(
      R"({"id":"0e9b1c34-6f0a-4a5c-9a53-2f2f7d1b8c11","enableAsyncHwEncoders":"true"})");
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  StandIn& phone = stage.StartPhone("a", {"--codec", GetParam().codec, "--gop", "long", "--seconds",
                                          "4", "--record", PathText(stage.File("take.mkv"))});
  EXPECT_EQ(phone.Wait(), kExitGood) << testing::PrintToString(phone.Complaints());
  const nlohmann::json summary = phone.Summary();
  ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(summary));
  EXPECT_NE(summary["encoder"].get<std::string>().find(GetParam().described), std::string::npos)
      << summary["encoder"];
  const VideoFile take = ReadVideoFile(stage.File("take.mkv"));
  EXPECT_EQ(take.error, "");
  EXPECT_GT(take.worstPsnr, 35);
  EXPECT_LT(take.worstPatch, 2);
  EXPECT_TRUE(take.saysBt709Limited);
  EXPECT_GE(take.pictures, 10);
  stage.EndHost();
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, WindowsEncoder,
    testing::Values(Encoder{"software", "h264", "Scripted software H.264 encoder [SW"},
                    Encoder{"software", "hevc", "Scripted software HEVC encoder [SW"},
                    Encoder{"nvidia-async", "h264", "asynchronous H.264 encoder [HW-async"},
                    Encoder{"nvidia-async", "hevc", "asynchronous HEVC encoder [HW-async"}));

TEST(WindowsEngines, AreChosenByThePhoneAndTheStreamGoesOn) {
  if (!HostIsWindows()) GTEST_SKIP() << "this system's host has other encoders";
  const ScopedEnvironment shown("VD_TRANSFORMS", "intel,amd,software");
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  for (const auto& [engine, described] :
       {std::pair{"amd", "Scripted AMD HEVC"},
        {"software", "Scripted software HEVC"},
        {"nvidia", "Scripted Intel HEVC"}}) {  // has none: the best
    StandIn& phone = stage.StartPhone(
        "a", {"--codec", "hevc", "--gop", "long", "--engine", engine, "--seconds", "3"});
    EXPECT_EQ(phone.Wait(), kExitGood) << testing::PrintToString(phone.Complaints());
    const nlohmann::json summary = phone.Summary();
    ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(summary));
    EXPECT_EQ(summary["encoder"].get<std::string>().find(described), 0U) << summary["encoder"];
  }
  stage.EndHost();
}

}  // namespace
}  // namespace Veldrift
