// The stream on the phone's standard output, for players.
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/file.h"
#include "tests/judge/video_file.h"
#include "tests/stream/stage.h"
#include "tools/phone/phone_exit.h"

namespace Veldrift {
namespace {

// A shell's line with the phone in it as "$@"; its exit code is in the file `code`, and what it
// says in the file `said`.
class Pipeline {
 public:
  Pipeline(Stage& stage, const std::string& id, const std::string& script,
           const Arguments& arguments)
      : folder_(stage.File(id)) {
    std::filesystem::create_directories(folder_);
    Arguments all = {"-c",
                     "cd \"$1\"; shift\nphone() { \"$@\" 2>said; echo $? >code; }\n" + script,
                     "sh",
                     PathText(folder_),
                     PathText(BesideThis("veldrift-phone")),
                     "--host",
                     "127.0.0.1:" + std::to_string(stage.ControlPort()),
                     "--bind",
                     stage.NewAddress(),
                     "--id",
                     id,
                     "--code-from-log",
                     stage.HostLog(),
                     "--token-file",
                     "token",
                     "--record",
                     "-"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    process_ = StartProcess("/bin/sh", all);
  }
  int Wait() {
    const auto status = process_->WaitFor(kPatienceNanos);
    EXPECT_TRUE(status.has_value()) << "it doesn't end";
    if (!status) process_->Kill();
    return std::stoi(ReadWholeFile(folder_ / "code").value_or("-1"));
  }
  std::filesystem::path File(const char* name) const { return folder_ / name; }
  std::string Said() const { return ReadWholeFile(folder_ / "said").value_or(""); }

 private:
  const std::filesystem::path folder_;
  std::unique_ptr<ChildProcess> process_;
};

TEST(LiveOutput, APlayerGetsPictureAndSoundInStepAlsoOverAnotherSize) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(
      stage.StartHost({"--size", "640x360", "--clapper", "--script", "4 size 320x180"}));
  Pipeline player(stage, "a", "phone \"$@\" >live.mkv",
                  {"--codec", "h264", "--gop", "long", "--seconds", "6"});
  EXPECT_EQ(player.Wait(), kExitGood) << player.Said();
  const VideoFile live = ReadVideoFile(player.File("live.mkv"));
  EXPECT_EQ(live.error, "");
  EXPECT_EQ(live.codec, "h264");
  EXPECT_GT(live.pictures, 60);
  EXPECT_TRUE(std::ranges::is_sorted(live.stamps));
  EXPECT_LT(live.times.front(), 0.1);
  EXPECT_GT(live.videoSeconds, 4);
  EXPECT_GT(live.soundSeconds, 4);
  const Sync sync = MeasureSync(live);
  EXPECT_GE(sync.flashes, 3U);
  EXPECT_LT(sync.worst, 1.0 / 30);
  // What is said doesn't stand among the pictures.
  EXPECT_NE(player.Said().find("320x180"), std::string::npos) << player.Said();
  stage.EndHost();
}

// A player's clock stands still while nothing comes: it would stay behind by what a pause took.
TEST(LiveOutput, APauseTakesNoTimeInThePlayer) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost(
      {"--size", "320x180", "--clapper", "--script", "0.1 pause, 2 play, 4 pause, 6 play"}));
  Pipeline player(stage, "a", "phone \"$@\" >live.mkv",
                  {"--codec", "h264", "--gop", "long", "--seconds", "8"});
  EXPECT_EQ(player.Wait(), kExitGood) << player.Said();
  const VideoFile live = ReadVideoFile(player.File("live.mkv"));
  EXPECT_EQ(live.error, "");
  ASSERT_GT(live.times.size(), 60U);
  double longestStep = 0;
  for (size_t i = 1; i < live.times.size(); ++i) {
    longestStep = std::max(longestStep, live.times[i] - live.times[i - 1]);
  }
  EXPECT_LT(longestStep, 0.5);
  EXPECT_GT(live.soundSeconds, 2);
  EXPECT_LT(MeasureSync(live).worst, 1.0 / 30);
  stage.EndHost();
}

// Players wait for sound that they were promised, and want to see something of a stream first.
TEST(LiveOutput, APictureThatNothingFollowsIsShownAtOnceAndSilenceGoesWithPictures) {
  struct {
    const char* id;
    Arguments host;
    double least, most;  // seconds of the stream
  } const rows[] = {{"still", {"--size", "320x180", "--script", "0 pause, 0 step"}, 0.2, 0.5},
                    {"mute", {"--size", "320x180", "--audio", "none"}, 2.0, 3.5}};
  for (const auto& row : rows) {
    Stage stage;
    ASSERT_NO_FATAL_FAILURE(stage.StartHost(row.host));
    // Of the codec that comes: to a change of it a host that stands still adds no picture.
    Pipeline player(stage, row.id, "phone \"$@\" >live.mkv", {"--gop", "long", "--seconds", "3"});
    EXPECT_EQ(player.Wait(), kExitGood) << player.Said();
    const VideoFile live = ReadVideoFile(player.File("live.mkv"));
    EXPECT_EQ(live.error, "") << row.id;
    EXPECT_GE(live.pictures, 6) << row.id;
    EXPECT_GT(live.videoSeconds, row.least) << row.id;
    EXPECT_LT(live.videoSeconds, row.most) << row.id;
    EXPECT_NEAR(live.soundSeconds, live.videoSeconds, 0.1) << row.id;
    stage.EndHost();
  }
}

TEST(LiveOutput, APlayerThatGoesEndsItAndOneThatSleepsMissesSome) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  Pipeline gone(stage, "a", "phone \"$@\" | head -c 200000 >live.mkv", {"--codec", "h264"});
  EXPECT_EQ(gone.Wait(), kExitGood) << gone.Said();
  EXPECT_EQ(std::filesystem::file_size(gone.File("live.mkv")), 200'000U);

  // It reads nothing until the phone says that something was left out.
  Pipeline asleep(stage, "b",
                  "phone \"$@\" | { while [ ! -s code ]; do sleep 0.1; done; cat >live.mkv; }",
                  {"--codec", "h264", "--seconds", "3"});
  EXPECT_EQ(asleep.Wait(), kExitGood) << asleep.Said();
  EXPECT_NE(asleep.Said().find("the player was too slow: "), std::string::npos) << asleep.Said();
  stage.EndHost();
}

TEST(LiveOutput, WithoutAPlayerItSaysWhatIsSo) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  Pipeline closed(stage, "a", "phone \"$@\" >&-", {});
  EXPECT_EQ(closed.Wait(), kExitUsage);
  EXPECT_NE(closed.Said().find("--record -: standard output is closed"), std::string::npos)
      << closed.Said();
  stage.EndHost();
}

TEST(LiveOutput, AnotherCodecEndsItWithASentence) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  Pipeline player(
      stage, "a", "phone \"$@\" >live.mkv",
      {"--codec", "h264", "--interval", "2000", "--send", "request-idr", "--send", "set-codec=00"});
  EXPECT_EQ(player.Wait(), kExitFailed);
  EXPECT_NE(player.Said().find("the stream's codec has changed"), std::string::npos)
      << player.Said();
  EXPECT_EQ(ReadVideoFile(player.File("live.mkv")).error, "");
  stage.EndHost();
}

}  // namespace
}  // namespace Veldrift
