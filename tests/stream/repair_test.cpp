// A stream over a bad network: what arrived is held against what the network let through.
#include <gtest/gtest.h>

#include "tests/stream/stage.h"

namespace Veldrift {
namespace {

struct Case {
  const char* codec;
  const char* codecName;
  const char* seconds;
  int fewestFrames;  // of 30 a second; a machine that is busy or under a sanitizer gets fewer
};

void PrintTo(const Case& given, std::ostream* out) { *out << given.codec; }

class Repair : public testing::TestWithParam<Case> {};

// Any K of a frame's K+M fragments give it back: only more than M losses may cost a frame.
void ExpectOnlyFramesBeyondRepairLost(const nlohmann::json& summary) {
  for (const auto& frame : summary["lost_video"]) {
    EXPECT_LT(frame["came"].get<int>(), frame["data"].get<int>()) << frame;
    EXPECT_GT(frame["parity"].get<int>(), 0) << frame;
  }
  // Numbers of which nothing came at all are lost too, and stand in no list.
  EXPECT_GE(summary["video"]["frames_lost"], summary["lost_video"].size());
}

// The simulated network is what its options say, and every frame met it.
void ExpectFivePerCentDropped(const nlohmann::json& video) {
  const double dropped = video["simulated_drops"];
  const double sent = dropped + video["datagrams"].get<double>();
  EXPECT_GT(dropped / sent, 0.03);
  EXPECT_LT(dropped / sent, 0.07);
  EXPECT_GT(video["simulated_reorders"], 0);
}

TEST_P(Repair, EveryFrameThatTheCodeCanRepairIsRepaired) {
  const Case& given = GetParam();
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  // The patience takes the machine's speed out: a frame is given up for what didn't come alone.
  StandIn& phone =
      stage.StartPhone("a", {"--codec", given.codec, "--drop", "5", "--reorder", "2", "--seed",
                             "20", "--patience", "20000", "--seconds", given.seconds});
  EXPECT_EQ(phone.Wait(), 0);
  const nlohmann::json summary = phone.Summary();
  ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(summary));
  EXPECT_EQ(summary["codec"], given.codecName);
  EXPECT_EQ(summary["width"], 640);
  EXPECT_EQ(summary["height"], 360);
  const auto& video = summary["video"];
  EXPECT_GE(video["frames_whole"], given.fewestFrames);
  EXPECT_GE(video["frames_repaired"], given.fewestFrames / 4);
  ExpectFivePerCentDropped(video);
  ExpectOnlyFramesBeyondRepairLost(summary);
  EXPECT_GT(summary["audio"]["frames_whole"], 0);
  const nlohmann::json host = stage.EndHost();
  EXPECT_GE(host["frames_pushed"], video["frames_whole"]);
}

INSTANTIATE_TEST_SUITE_P(Codecs, Repair,
                         testing::Values(Case{"h264", "H.264", "10", 80},
                                         Case{"hevc", "HEVC", "10", 20}),
                         [](const auto& given) { return std::string(given.param.codec); });

// In a stream of predicted pictures a lost one breaks those behind it, until a key frame. The phone
// asks for one, at most every 300 ms, and gets it.
TEST(Repair, ALongStreamOfPredictedPicturesGoesOnBehindEachLoss) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost({"--size", "320x240", "--fps", "30"}));
  StandIn& phone = stage.StartPhone(
      "a", {"--codec", "h264", "--gop", "long", "--drop", "5", "--seed", "3", "--seconds", "6"});
  EXPECT_EQ(phone.Wait(), 0) << testing::PrintToString(phone.Complaints());
  const nlohmann::json summary = phone.Summary();
  ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(summary));
  const int lost = summary["video"]["frames_lost"];
  const int broken = summary["decoder"]["skipped"];
  int asked = 0;
  for (const nlohmann::json& command : summary["commands"])
    asked += command["name"] == "request-idr";
  ASSERT_GT(lost, 0) << "a network that loses nothing shows nothing";
  EXPECT_GT(asked, 0);
  EXPECT_LE(asked, lost + broken);
  // What a request and its key frame take, at 30 frames a second: the period of asking, the way and
  // a loss of the answer.
  constexpr int kMostBrokenALoss = 15;
  EXPECT_LE(broken, kMostBrokenALoss * lost);
  EXPECT_GT(summary["decoder"]["decoded"], broken);
  stage.EndHost();
}

}  // namespace
}  // namespace Veldrift
