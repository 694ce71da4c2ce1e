// Everything that the phone can ask for, from its command line, against the running module.
#include <gtest/gtest.h>

#include "platform/file.h"
#include "tests/stream/stage.h"
#include "tools/phone/phone_exit.h"

namespace Veldrift {
namespace {

TEST(Commands, EachIsTakenAnsweredAndListedWithItsTime) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  Arguments arguments = {"--seconds",        "3",       "--marker",  "a mark",
                         "--codec",          "h264",    "--gop",     "long",
                         "--mode",           "quality", "--quality", "60",
                         "--max-short-side", "240",     "--engine",  "software"};
  const char* const others[] = {"request-idr",
                                "set-bitrate",
                                "receiver-report",
                                "set-auto-mode",
                                "set-hard-frame-cap",
                                "set-congestion-controller",
                                "receiver-report-v2",
                                "set-playback-prefer",
                                "set-mode",
                                "set-max-latency",
                                "app-telemetry",
                                "set-transition-mode",
                                "set-full-quality-when-paused",
                                "settings-snapshot=f00001030100",
                                "play",
                                "step-forward",
                                "step-back",
                                "jump-forward",
                                "jump-back",
                                "go-to-in",
                                "go-to-out",
                                "shuttle-back",
                                "shuttle-stop",
                                "shuttle-forward"};
  for (const char* other : others) {
    arguments.emplace_back("--send");
    arguments.emplace_back(other);
  }
  StandIn& phone = stage.StartPhone("a", arguments);
  EXPECT_EQ(phone.Wait(), kExitGood) << testing::PrintToString(phone.Complaints());
  const nlohmann::json summary = phone.Summary();
  ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(summary));
  EXPECT_EQ(summary["codec"], "H.264");
  EXPECT_EQ(summary["height"], 240);
  std::vector<int> acknowledged;
  size_t modes = 0;
  for (const nlohmann::json& command : summary["commands"]) {
    // The phone repeats the snapshot's mode behind the change of size, as often as it sees fit.
    if (command["opcode"] == 0x08 && modes++ > 0) continue;
    if (!command.contains("acknowledged_after_ms")) continue;
    EXPECT_GT(command["acknowledged_after_ms"], 0) << command;
    acknowledged.push_back(command["opcode"]);
  }
  EXPECT_EQ(acknowledged, (std::vector<int>{0x13, 0x05, 0x04, 0x08, 0x07, 0x02, 0x0B}));
  size_t acks = 0;
  for (const nlohmann::json& message : summary["control"]) acks += message["opcode"] == 0x0F;
  ASSERT_GE(modes, 2U);
  const size_t repeats = modes - 1;
  EXPECT_EQ(acks, 7U + 4U + repeats);  // the snapshot's settings are acknowledged one by one
  EXPECT_EQ(stage.CountInHostLog("control: SetEncoderMode Quality q=70%"), 1U + repeats);
  EXPECT_EQ(stage.CountInHostLog("[TEST] a mark"), 1U);
  EXPECT_EQ(stage.CountInHostLog("control: unhandled opcode"), 0U);
  EXPECT_EQ(stage.CountInHostLog("control: SetEncoderMode Quality q=60%"), 1U);
  EXPECT_EQ(stage.CountInHostLog("control: retired opcode"), 10U);
  stage.EndHost();
}

TEST(Commands, SelfTestsRunInTheLiveModuleAndTheirVerdictIsPrinted) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  StandIn& phone = stage.StartPhone(
      "a", {"--self-test", "P0.1", "--self-test", "P0.3", "--self-test", "P0.4", "--self-test",
            "P1.1", "--self-test", "P2.1", "--self-test", "P3", "--self-test", "P6.1"});
  EXPECT_EQ(phone.Wait(), kExitGood) << phone.Output();
  const nlohmann::json verdicts = phone.Summary()["self_tests"];
  ASSERT_EQ(verdicts.size(), 7U);
  for (const nlohmann::json& verdict : verdicts) EXPECT_TRUE(verdict["passed"]) << verdict;
  EXPECT_NE(verdicts[5]["detail"].get<std::string>().find("tornCopies=0"), std::string::npos);
  StandIn& failing = stage.StartPhone("a", {"--self-test", "P9"});
  EXPECT_EQ(failing.Wait(), kExitSelfTest);
  EXPECT_EQ(failing.Summary()["self_tests"][0]["detail"], "unknown self-test id 'P9'");
  stage.EndHost();
}

}  // namespace
}  // namespace Veldrift
