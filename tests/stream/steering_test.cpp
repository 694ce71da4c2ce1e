// A host that doesn't just play: the phone steers it, its source changes, several instances play,
// and it does what hard hosts do. What arrived is looked at, and the host judges the module.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "net/control_protocol.h"
#include "platform/file.h"
#include "tests/judge/video_file.h"
#include "tests/stream/stage.h"
#include "tools/phone/phone_exit.h"

namespace Veldrift {
namespace {

// The messages of one opcode that the phone was sent, in order.
std::vector<nlohmann::json> MessagesOf(const nlohmann::json& summary, uint8_t opcode) {
  std::vector<nlohmann::json> found;
  for (const nlohmann::json& message : summary["control"]) {
    if (message["opcode"] == opcode) found.push_back(message);
  }
  return found;
}

TEST(Steering, ThePhonesKeysPauseStepAndResumeThePicture) {
  constexpr double kBetweenKeys = 0.5;
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost({"--size", "320x240"}));
  StandIn& phone = stage.StartPhone(
      "a", {"--codec", "h264", "--key", "play", "--key", "step-forward", "--key", "step-back",
            "--key", "step-back", "--key", "play", "--interval", "500", "--seconds", "4",
            "--record", PathText(stage.File("take.mkv"))});
  EXPECT_EQ(phone.Wait(), kExitGood) << testing::PrintToString(phone.Complaints());
  ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(phone.Summary()));
  std::vector<int> states;
  for (const nlohmann::json& message : MessagesOf(phone.Summary(), kPlaybackState)) {
    states.push_back(message["bytes"][0]);
  }
  EXPECT_EQ(states, (std::vector<int>{1, 0, 1}));

  const nlohmann::json host = stage.EndHost();
  std::vector<std::string> did;
  std::vector<int64_t> places;
  for (const nlohmann::json& action : host["actions"]) {
    EXPECT_EQ(action["by"], "phone");
    did.push_back(action["what"]);
    places.push_back(action["place"]);
  }
  // The first is what the module asks for when a phone comes.
  ASSERT_EQ(did,
            (std::vector<std::string>{"render", "pause", "step 1", "step -1", "step -1", "play"}));
  const int64_t paused = places[1];
  EXPECT_EQ(std::vector<int64_t>(places.begin() + 2, places.end()),
            (std::vector<int64_t>{paused + 1, paused, paused - 1, paused - 1}));

  // A picture came with each step, and none in between.
  const VideoFile take = ReadVideoFile(stage.File("take.mkv"));
  int pauses = 0;
  for (size_t i = 1; i < take.times.size(); ++i) {
    pauses += take.times[i] - take.times[i - 1] > 0.8 * kBetweenKeys;
  }
  EXPECT_GE(pauses, 4) << testing::PrintToString(take.times);
}

TEST(Steering, ASourceThatChangesItsSizeAndRateWhileItPlaysIsToldAndShown) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost({"--size", "320x240", "--fps", "30", "--script",
                                           "2 size 480x270, 3.5 fps 24", "--frames", "130"}));
  StandIn& phone = stage.StartPhone("a", {"--codec", "h264", "--gop", "long", "--no-reconnect"});
  EXPECT_EQ(phone.Wait(), kExitLost) << testing::PrintToString(phone.Complaints());
  EXPECT_EQ(stage.Host().Wait(), 0) << testing::PrintToString(stage.Host().Complaints());
  const nlohmann::json summary = phone.Summary();
  ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(summary, kExitLost));
  EXPECT_EQ(summary["width"], 480);
  EXPECT_EQ(summary["height"], 270);
  std::vector<std::array<int, 3>> told;
  for (const nlohmann::json& message : MessagesOf(summary, kStreamInfo)) {
    const std::array<int, 3> info = {message["width"], message["height"], message["fps"]};
    if (told.empty() || told.back() != info) told.push_back(info);
  }
  EXPECT_EQ(told,
            (std::vector<std::array<int, 3>>{{320, 240, 30}, {480, 270, 30}, {480, 270, 24}}));
}

TEST(Steering, TwoInstancesPlayAndEachAnswersTheOneCommand) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(
      stage.StartHost({"--size", "320x240", "--playing", "2", "--audio-road", "pull"}));
  StandIn& phone = stage.StartPhone("a", {"--codec", "h264", "--gop", "intra", "--seconds", "3"});
  // Two streams of pictures are not one in order: the verdict isn't the matter here.
  phone.Wait();
  const nlohmann::json summary = phone.Summary();
  std::vector<int> acknowledged;
  for (const nlohmann::json& message : MessagesOf(summary, kCommandAck)) {
    acknowledged.push_back(message["bytes"][0]);
  }
  EXPECT_EQ(acknowledged, (std::vector<int>{kSetCodec, kSetCodec, kSetGopMode, kSetGopMode}));
  // Both number their frames from one count, so that none seems lost and none comes twice.
  EXPECT_EQ(summary["video"]["violations"], 0);
  EXPECT_EQ(summary["audio"]["violations"], 0);
  EXPECT_EQ(summary["video"]["frames_lost"], 0);
  EXPECT_EQ(summary["decoder"]["failed"], 0);
  EXPECT_GT(summary["stamps"]["repeated"], 0) << "only one of them was seen";
  stage.EndHost();
}

// Where the setup is no window, its text follows the stream.
TEST(StatusOption, TellsWhoCameAndWhatIsStreamed) {
  if (HostIsWindows()) GTEST_SKIP() << "there it is a window";
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost({"--size", "320x240", "--status"}));
  StandIn& phone = stage.StartPhone("a", {"--codec", "h264", "--seconds", "2"});
  EXPECT_EQ(phone.Wait(), kExitGood) << testing::PrintToString(phone.Complaints());
  const auto shown = [&] {
    std::string text;
    for (const std::string& line : stage.Host().Complaints()) text += line + "\n";
    return text;
  };
  // The phone has gone by then.
  EXPECT_TRUE(Eventually(
      [&] { return shown().find("LIVE STREAM: iPhone            —") != std::string::npos; }));
  stage.Host().Interrupt();
  EXPECT_EQ(stage.Host().Wait(), 0);
  for (const char* line :
       {"Ready · waiting for iPhone", "DEVICE: Status            Streaming",
        "LIVE STREAM: Codec             H.264", "320x240 H.264 @ 30 fps", ", paired 20"}) {
    EXPECT_NE(shown().find(line), std::string::npos) << line << "\n" << shown();
  }
}

struct Way {
  const char* name;
  const char* hostile;
  const char* script;
};

void PrintTo(const Way& way, std::ostream* out) { *out << way.name; }

class HardHost : public testing::TestWithParam<Way> {};

TEST_P(HardHost, GetsItsRulesKeptAndThePhoneItsPictures) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(
      stage.StartHost({"--size", "320x240", "--instances", "2", "--audio-road", "pull", "--setup",
                       "--hostile", GetParam().hostile, "--script", GetParam().script}));
  StandIn& phone = stage.StartPhone("a", {"--codec", "h264", "--seconds", "3"});
  EXPECT_EQ(phone.Wait(), kExitGood) << testing::PrintToString(phone.Complaints());
  ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(phone.Summary()));
  EXPECT_EQ(phone.Summary()["width"], 320);
  EXPECT_EQ(phone.Summary()["height"], 240);
  stage.EndHost();
}

constexpr const char* kPauses = "2 pause, 2.3 scrub -4, 2.6 play";

// With the lock, slot 10 takes as long as the module waits for a callback: once is enough.
INSTANTIATE_TEST_SUITE_P(Ways, HardHost,
                         testing::Values(Way{"Pictures", "frames,activation", kPauses},
                                         Way{"Callback", "callback", kPauses},
                                         Way{"Lock", "lock", ""}),
                         [](const auto& given) { return std::string(given.param.name); });

}  // namespace
}  // namespace Veldrift
