// A phone that is to be relied on: its host is killed and comes back, others take its place, its
// terminal is closed, it is killed itself, its disk is full. What it recorded is read by the media
// library.
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/file.h"
#include "tests/judge/video_file.h"
#include "tests/stream/stage.h"
#include "tools/phone/phone_exit.h"

namespace Veldrift {
namespace {

// The phone's own account of a recording, against what is in the files.
void ExpectTrueLengths(const nlohmann::json& recording, size_t files) {
  ASSERT_EQ(recording["parts"].size(), files);
  double sum = 0;
  for (const nlohmann::json& part : recording["parts"]) {
    const VideoFile file = ReadVideoFile(PathFromText(part["file"].get<std::string>()));
    EXPECT_EQ(file.error, "") << part;
    ASSERT_FALSE(file.times.empty()) << part;
    // The first picture may be one of long ago, which greets a new phone.
    EXPECT_TRUE(std::is_sorted(file.stamps.begin() + 1, file.stamps.end())) << part;
    EXPECT_NEAR(part["seconds"].get<double>(), std::max(file.times.back(), file.soundSeconds), 0.1);
    sum += part["seconds"].get<double>();
  }
  EXPECT_NEAR(recording["seconds"].get<double>(), sum, 0.01);
}

bool Said(StandIn& phone, const std::string& what) {
  return Eventually([&] {
           for (const std::string& line : phone.Complaints()) {
             if (line.find(what) != line.npos) return true;
           }
           return phone.Ended();
         }) &&
         !phone.Ended();
}

TEST(StayingConnected, AHostThatIsKilledAndStartedAgainIsComeBackToByToken) {
  if (HostIsWindows()) GTEST_SKIP() << "a killed one leaves its part of Wine behind";
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost({"--size", "320x240"}));
  StandIn& phone =
      stage.StartPhone("a", {"--codec", "h264", "--gop", "long", "--key", "play", "--key", "play",
                             "--interval", "200", "--snapshots", PathText(stage.File("a")),
                             "--record", PathText(stage.File("take.mkv"))});
  ASSERT_TRUE(ShowsPictures(stage.File("a")));
  stage.Host().Kill();
  EXPECT_EQ(stage.Host().Wait(), -1);
  ASSERT_TRUE(Said(phone, "the plug-in closed the connection; trying to connect again"));
  ASSERT_NO_FATAL_FAILURE(stage.StartHostAgain());
  ASSERT_TRUE(Said(phone, "connected again after "));
  const size_t before = ReadPngs(stage.File("a")).size();
  ASSERT_TRUE(Eventually([&] { return ReadPngs(stage.File("a")).size() >= before + 2; }));
  phone.Interrupt();
  EXPECT_EQ(phone.Wait(), kExitLost) << testing::PrintToString(phone.Complaints());
  const nlohmann::json summary = phone.Summary();
  ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(summary, kExitLost));
  EXPECT_EQ(summary["video"]["frames_lost"], 0) << "another host's numbers were taken for gaps";
  EXPECT_EQ(summary["codec"], "H.264") << "the settings weren't sent again";
  EXPECT_EQ(summary["session"]["lost_connections"], 1);
  EXPECT_GT(summary["session"]["interruptions"][0]["seconds"], 0);
  ASSERT_NO_FATAL_FAILURE(ExpectTrueLengths(summary["recording"], 2));
  // Keys are pressed once.
  EXPECT_EQ(stage.EndHost()["actions"].size(), 1U);
  EXPECT_EQ(stage.CountInHostLog("pair: challenge="), 0U);
  EXPECT_EQ(stage.CountInHostLog("pair: trusted reconnect"), 1U);
}

TEST(StayingConnected, OneThatOnlyTriesItsLuckCostsASecondOrTwo) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost({"--size", "320x240"}));
  StandIn& phone =
      stage.StartPhone("a", {"--codec", "h264", "--snapshots", PathText(stage.File("a"))});
  ASSERT_TRUE(ShowsPictures(stage.File("a")));
  StandIn& stranger = stage.StartPhoneWithoutCode("b", {"--code", "000000"});
  EXPECT_EQ(stranger.Wait(), kExitRefused);
  ASSERT_TRUE(Said(phone, "connected again after "));
  phone.Interrupt();
  EXPECT_EQ(phone.Wait(), kExitLost);
  ExpectGoodPictures(phone.Summary(), kExitLost);
  stage.EndHost();
}

// The one whose terminal is closed finishes its files; of the other's what was written plays.
TEST(StayingConnected, ARecordingOutlivesItsTerminalAndItsPhone) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost({"--size", "320x240"}));
  StandIn& closed =
      stage.StartPhone("a", {"--codec", "h264", "--snapshots", PathText(stage.File("a")),
                             "--record", PathText(stage.File("closed.mkv"))});
  ASSERT_TRUE(ShowsPictures(stage.File("a")));
  closed.CloseTerminal();
  EXPECT_EQ(closed.Wait(), kExitGood);
  ExpectTrueLengths(closed.Summary()["recording"], 1);

  StandIn& killed = stage.StartPhoneWithoutCode(
      "a", {"--codec", "h264", "--snapshots", PathText(stage.File("b")), "--snapshot-every", "3",
            "--record", PathText(stage.File("killed.mkv"))});
  ASSERT_TRUE(ShowsPictures(stage.File("b")));  // for three seconds
  killed.Kill();
  EXPECT_EQ(killed.Wait(), -1);
  const VideoFile file = ReadVideoFile(stage.File("killed.mkv"));
  EXPECT_EQ(file.error, "");
  ASSERT_FALSE(file.times.empty());
  EXPECT_GT(file.times.back(), 1.2);
  EXPECT_GT(file.soundSeconds, 1);
  stage.EndHost();
}

// Each container on a disk of its own of a few megabytes, which the stream fills in seconds.
TEST(StayingConnected, AFullDiskEndsTheRunAtOnceAndTheFileIsWhole) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost({"--size", "640x360"}));
  if (!stage.CanMount()) GTEST_SKIP() << "this user may not mount a small disk";
  for (const std::string name : {"full.mkv", "full.mov"}) {
    SCOPED_TRACE(name);
    StandIn& phone = stage.StartPhoneOnSmallDisk(
        "a", name, {"--codec", "h264", "--gop", "intra", "--seconds", "60"});
    EXPECT_EQ(phone.Wait(), kExitFailed);
    const nlohmann::json summary = phone.Summary();
    EXPECT_LT(summary["seconds"], 50) << "it went on without a recording";
    const std::string verdict = summary.value("verdict", "");
    EXPECT_NE(verdict.find(name + ": No space left on device"), verdict.npos) << verdict;
    const VideoFile file = ReadVideoFile(stage.File(name));
    EXPECT_EQ(file.error, "");
    ASSERT_FALSE(file.times.empty());
    EXPECT_NEAR(summary["recording"]["seconds"].get<double>(),
                std::max(file.times.back(), file.soundSeconds), 0.1);
  }
  stage.EndHost();
}

}  // namespace
}  // namespace Veldrift
