// Whole streams between processes: veldrift-host plays into the module, veldrift-phone receives.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "platform/file.h"
#include "platform/socket.h"
#include "support/clock.h"
#include "tests/stream/recording_reader.h"
#include "tests/stream/stands.h"
#include "tests/support/test_phone.h"

namespace Veldrift {
namespace {

const std::vector<std::string> kSmallPicture{"--size", "320x180", "--fps", "15"};

void ExpectGood(const nlohmann::json& result) {
  EXPECT_EQ(result["exit"], 0) << result["verdict"];
  ASSERT_TRUE(result.contains("decoder"));
  EXPECT_GT(result["decoder"]["decoded"], 0);
  EXPECT_EQ(result["decoder"]["failed"], 0);
  EXPECT_EQ(result["stamps"]["out_of_order"], 0);
  EXPECT_EQ(result["stamps"]["unreadable"], 0);
  EXPECT_EQ(result["video"]["violations"], 0);
  EXPECT_EQ(result["audio"]["violations"], 0);
}

int HostEnd(StreamStage& stage) {
  stage.Host().Interrupt();
  return stage.Host().Wait();
}

TEST(Stream, H264WithLossesIsRepairedRecordedAndPlayedAgain) {
  StreamStage stage("127.0.4.10");
  stage.StartHost({"--size", "640x360"});
  const auto result = stage.PhoneResult(
      "phone", {"--codec", "h264", "--gop", "long", "--drop", "2", "--reorder", "1", "--seconds",
                "6", "--record", PathText(stage.File("take.mkv")), "--snapshots",
                PathText(stage.File("pictures"))});
  ExpectGood(result);
  EXPECT_EQ(result["codec"], "H.264");
  EXPECT_EQ(result["width"], 640);
  EXPECT_GT(result["video"]["frames_repaired"], 0);
  EXPECT_GT(result["video"]["simulated_drops"], 0);
  EXPECT_GT(result["audio"]["frames_whole"], 0);
  EXPECT_GT(result["snapshots"], 0);
  ExpectGood(stage.PhoneResult("clean", {"--codec", "h264", "--seconds", "2", "--record",
                                         PathText(stage.File("clean.mkv"))}));
  EXPECT_EQ(HostEnd(stage), 0);

  const RecordingContents recording = ReadRecording(stage.File("take.mkv"));
  ASSERT_TRUE(recording.opened);
  EXPECT_EQ(recording.codec, "h264");
  EXPECT_EQ(recording.width, 640);
  EXPECT_EQ(recording.height, 360);
  EXPECT_TRUE(recording.bt709Limited);
  EXPECT_GT(recording.videoPackets, 0);
  EXPECT_LE(recording.videoPackets, result["video"]["frames_whole"]);
  EXPECT_NEAR(recording.videoSeconds, recording.audioSeconds, 1.0);

  // What was recorded is a video file like any other: it goes in again, with its sound.
  // The file starts over at its end, so it gets stamps of its own.
  stage.StartHost({"--input", PathText(stage.File("clean.mkv")), "--stamp"});
  const auto again = stage.PhoneResult("again", {"--codec", "h264", "--seconds", "3"});
  ExpectGood(again);
  EXPECT_EQ(again["width"], 640);
  EXPECT_GT(again["audio"]["frames_whole"], 0);
  EXPECT_EQ(HostEnd(stage), 0);
}

TEST(Stream, HevcUnderTheResolutionLimit) {
  StreamStage stage("127.0.4.11");
  stage.StartHost(kSmallPicture);
  const auto result = stage.PhoneResult(
      "phone", {"--codec", "hevc", "--gop", "short", "--max-short-side", "90", "--seconds", "3"});
  EXPECT_EQ(result["exit"], 0) << result["verdict"];
  EXPECT_EQ(result["codec"], "HEVC");
  EXPECT_EQ(result["width"], 160);
  EXPECT_EQ(result["height"], 90);
  EXPECT_EQ(HostEnd(stage), 0);
}

TEST(Stream, PairingByCodeByTokenAndByTheWrongCode) {
  StreamStage stage("127.0.4.12");
  stage.StartHost(kSmallPicture);
  const std::vector<std::string> brief{"--codec", "h264", "--seconds", "1"};
  ExpectGood(stage.PhoneResult("phone", brief));
  ExpectGood(stage.PhoneResult("phone", brief));
  EXPECT_NE(stage.PluginLog().find("pair: trusted reconnect id=phone"), std::string::npos);

  Stand stranger = stage.Phone("stranger", {"--code", "000000", "--seconds", "1"});
  EXPECT_EQ(stranger.Wait(), 5);
  EXPECT_EQ(stranger.Errors().size(), 1U);
  ExpectGood(stage.PhoneResult("phone", brief));
  EXPECT_EQ(HostEnd(stage), 0);
  EXPECT_EQ(stage.Host().Json()["undisposed"], 0);
}

TEST(Stream, KilledPhonesAndNonsenseDoNotKeepTheNextPhoneOut) {
  StreamStage stage("127.0.4.13");
  stage.StartHost(kSmallPicture);
  {
    Stand killed = stage.Phone("killed", {"--codec", "h264", "--code-from-log",
                                          PathText(stage.File("home/local/Veldrift/plugin.log"))});
    ASSERT_TRUE(stage.LogEventuallyHas("pair: OK id=killed"));
    ASSERT_TRUE(stage.LogEventuallyHas("SendControl: kEncoderInfo"));
    killed.Kill();
    EXPECT_EQ(killed.Wait(), -1);
  }
  SocketLayer layer;
  TestPhone garbage = TestPhone::Connect(47100);
  ASSERT_TRUE(garbage.Connected());
  garbage.Send("GET / HTTP/1.1\r\n\r\n");
  EXPECT_TRUE(garbage.SeesTheEnd());
  TestPhone silent = TestPhone::Connect(47100);
  ASSERT_TRUE(silent.Connected());
  ExpectGood(stage.PhoneResult("next", {"--codec", "h264", "--seconds", "2"}));
  EXPECT_TRUE(silent.SeesTheEnd());
  EXPECT_EQ(HostEnd(stage), 0);
}

TEST(Stream, AHostThatIsKilledEndsThePhoneWithItsRecordingReadable) {
  StreamStage stage("127.0.4.14");
  stage.StartHost(kSmallPicture);
  Stand phone = stage.Phone("phone", {"--codec", "h264", "--code-from-log",
                                      PathText(stage.File("home/local/Veldrift/plugin.log")),
                                      "--record", PathText(stage.File("take.mkv"))});
  ASSERT_TRUE(stage.LogEventuallyHas("SendControl: kStreamInfo"));
  // Some pictures are to be in it.
  SystemClock().SleepFor(2 * kNanosPerSecond);
  stage.Host().Kill();
  EXPECT_EQ(stage.Host().Wait(), -1);
  phone.Wait();  // by itself: the connection is gone
  const RecordingContents recording = ReadRecording(stage.File("take.mkv"));
  ASSERT_TRUE(recording.opened);
  EXPECT_GT(recording.videoPackets, 0);
}

TEST(Stream, WrongUseIsAnsweredInOneSentenceWithItsOwnExitCode) {
  struct Case {
    const char* program;
    std::vector<std::string> arguments;
    int exit;
  };
  ScratchFolder folder;
  const std::string text = PathText(folder.Path() / "text.mov");
  std::ofstream(folder.Path() / "text.mov") << "this is no video";
  const std::string home = PathText(folder.Path() / "home");
  SocketLayer layer;
  const auto taken = OpenDatagramReceiver({*ParseAddress("127.0.4.15"), 47101}, 1 << 16);
  ASSERT_TRUE(taken) << ErrorText();
  const Case cases[] = {
      {"veldrift-host", {"--home", home, "--input", "/nowhere/film.mov"}, 5},
      {"veldrift-host", {"--home", home, "--input", text}, 5},
      {"veldrift-host", {"--home", home, "--module", text}, 3},
      {"veldrift-host", {"--home", home, "--qr"}, 7},
      {"veldrift-host", {"--home", home, "--host", "unknown"}, 8},
      {"veldrift-phone", {"--host", "127.0.0.1:1", "--bind", "127.0.4.16", "--wait", "0"}, 3},
      {"veldrift-phone", {"--host", "127.0.0.1", "--bind", "127.0.4.15", "--code", "123456"}, 4},
      {"veldrift-phone", {"--discover"}, 8},
  };
  const auto control = ListenTcp(47130);
  ASSERT_TRUE(control) << ErrorText();
  int number = 0;
  for (const Case& wrong : cases) {
    Stand stand(wrong.program, std::to_string(number++), folder.Path(), wrong.arguments);
    EXPECT_EQ(stand.Wait(), wrong.exit) << wrong.program << " " << wrong.arguments.back();
    EXPECT_EQ(stand.Errors().size(), 1U) << wrong.program << " " << wrong.arguments.back();
  }
  for (const char* program : {"veldrift-host", "veldrift-phone"}) {
    Stand stand(program, "usage", folder.Path(), {"--no-such-option"});
    EXPECT_EQ(stand.Wait(), 2);
    EXPECT_FALSE(stand.Errors().empty());
  }
}

}  // namespace
}  // namespace Veldrift
