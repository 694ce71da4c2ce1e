// The Windows module's encoders, of each kind, seen from the phone.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <sstream>
#include <string>

#include "platform/file.h"
#include "tests/judge/video_file.h"
#include "tests/scan/picture_file.h"
#include "tests/scan/qr_scanner.h"
#include "tests/stream/stage.h"
#include "tests/support/child.h"
#include "tools/phone/phone_exit.h"
#include "tools/receiver/control_client.h"

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

// ---- The windows -------------------------------------------------------------------------------

// What the windows of the host's process show, by control; empty where there is no such window.
class Windows {
 public:
  explicit Windows(Stage& stage) {
    StandIn reader("window-texts", {}, stage.NewStem("texts"));
    EXPECT_EQ(reader.Wait(), 0);
    std::istringstream text(reader.Output());
    std::string kind;
    for (std::string line; std::getline(text, line);) {
      if (line.starts_with('[')) {
        kind = line.substr(1, line.find(']') - 1);
        texts_[kind][0] = line.substr(line.find(']') + 2);
      } else {
        texts_[kind][std::stoi(line)] = line.substr(line.find(' ') + 1);
      }
    }
  }
  // The title for control 0.
  std::string Text(const std::string& kind, int control) const {
    const auto window = texts_.find(kind);
    if (window == texts_.end()) return {};
    const auto found = window->second.find(control);
    return found == window->second.end() ? std::string() : found->second;
  }
  bool Has(const std::string& kind) const { return texts_.contains(kind); }

 private:
  std::map<std::string, std::map<int, std::string>> texts_;
};

constexpr const char* kPairingWindow = "Veldrift.PairingDialog";
constexpr const char* kSetupWindow = "Veldrift.SetupDialog";

// A person reads the code off the screen, and looks at the setup while the picture runs.
TEST(WindowsOnScreen, TheModuleShowsTheCodeAndThenTheStream) {
  if (!HostIsWindows()) GTEST_SKIP() << "this system has no windows";
  const ScopedEnvironment shown("VD_TRANSFORMS", "intel");
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost({"--size", "640x360", "--setup"}));
  {
    const Windows before(stage);
    EXPECT_EQ(before.Text(kSetupWindow, 0), "Ombrette");
    EXPECT_FALSE(before.Has(kPairingWindow));
    EXPECT_EQ(before.Text(kSetupWindow, 2201), "Ready · waiting for iPhone");
  }
  ControlClient hand;
  std::string error, token;
  const uint32_t loopback = *ParseAddress("127.0.0.1");
  ASSERT_TRUE(hand.Connect({loopback, stage.ControlPort()}, loopback, 10 * kNanosPerSecond, error))
      << error;
  const auto readOffTheScreen = [&]() -> std::optional<std::string> {
    std::string code;
    EXPECT_TRUE(Eventually([&] {
      const Windows now(stage);
      EXPECT_EQ(now.Text(kPairingWindow, 1001).substr(0, 19), "Enter this code on ");
      code = now.Text(kPairingWindow, 1002);
      return !code.empty();
    }));
    EXPECT_EQ(code.size(), 11U) << code;
    std::erase(code, ' ');
    return code;
  };
  EXPECT_EQ(hand.Pair({"hand", "Hand", ""}, readOffTheScreen, token),
            ControlClient::PairResult::Paired);
  hand.Disconnect();
  EXPECT_TRUE(Eventually([&] { return !Windows(stage).Has(kPairingWindow); }));

  StandIn& phone = stage.StartPhone(
      "a", {"--codec", "h264", "--max-short-side", "180", "--gop", "long", "--seconds", "8"});
  std::string status, line;
  EXPECT_TRUE(Eventually([&] {
    const Windows now(stage);
    status = now.Text(kSetupWindow, 2201);
    line = now.Text(kSetupWindow, 2202);
    return phone.Ended() || (status == "Streaming" && line.find("320x180") != line.npos);
  }));
  EXPECT_EQ(status, "Streaming");
  EXPECT_EQ(line.find("Active encoder: Scripted Intel H.264"), 0U) << line;
  EXPECT_EQ(phone.Wait(), kExitGood) << testing::PrintToString(phone.Complaints());
  ExpectGoodPictures(phone.Summary());
  EXPECT_TRUE(Eventually(
      [&] { return Windows(stage).Text(kSetupWindow, 2201) == "Ready · waiting for iPhone"; }));
  stage.EndHost();
}

// The suite of windows has left a picture of the setup, and what its code is to say.
TEST(WindowsOnScreen, TheCodeOnAPictureOfTheSetupIsThePairingUri) {
  const char* const shots = std::getenv("VD_SHOTS");
  if (shots == nullptr) GTEST_SKIP() << "VD_SHOTS names no pictures";
  const std::filesystem::path folder = shots;
  const auto picture = ReadPicture(folder / "setup-to-scan.png");
  const auto uri = ReadWholeFile(folder / "setup-to-scan.txt");
  ASSERT_TRUE(picture.has_value() && uri.has_value()) << folder;
  EXPECT_EQ(ScanQr(*picture), uri);
}

}  // namespace
}  // namespace Veldrift
