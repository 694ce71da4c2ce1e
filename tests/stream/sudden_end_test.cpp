// One side goes, with and without a word: the other side carries on or ends, and keeps what it has.
#include <gtest/gtest.h>

#include "platform/file.h"
#include "tests/judge/video_file.h"
#include "tests/stream/stage.h"
#include "tools/phone/phone_exit.h"

namespace Veldrift {
namespace {

TEST(SuddenEnd, AfterAPhoneWasKilledTheNextOneGetsItsPictures) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  StandIn& killed = stage.StartPhone("a", {"--snapshots", PathText(stage.File("a"))});
  ASSERT_TRUE(ShowsPictures(stage.File("a")));
  killed.Kill();
  EXPECT_EQ(killed.Wait(), -1);
  StandIn& next = stage.StartPhone("b", {"--seconds", "2"});
  EXPECT_EQ(next.Wait(), kExitGood) << testing::PrintToString(next.Complaints());
  ExpectGoodPictures(next.Summary());
  stage.EndHost();
}

TEST(SuddenEnd, AfterTheHostWasKilledThePhoneEndsAndItsRecordingIsWhole) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  StandIn& phone =
      stage.StartPhone("a", {"--no-reconnect", "--snapshots", PathText(stage.File("a")), "--record",
                             PathText(stage.File("take.mkv"))});
  ASSERT_TRUE(ShowsPictures(stage.File("a")));
  stage.Host().Kill();
  EXPECT_EQ(stage.Host().Wait(), -1);
  EXPECT_EQ(phone.Wait(), kExitLost);
  ASSERT_EQ(phone.Complaints().size(), 1U) << testing::PrintToString(phone.Complaints());
  EXPECT_TRUE(phone.Complaints()[0].starts_with("veldrift-phone: the connection was lost after "));
  const nlohmann::json summary = phone.Summary();
  EXPECT_EQ("veldrift-phone: " + summary.value("verdict", ""), phone.Complaints()[0]);
  ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(summary, kExitLost));
  const VideoFile take = ReadVideoFile(stage.File("take.mkv"));
  EXPECT_EQ(take.error, "");
  EXPECT_GE(take.pictures, summary["decoder"]["decoded"]);
}

TEST(SuddenEnd, BothTakeCtrlCAndLeaveEverythingTidy) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  StandIn& phone = stage.StartPhone("a", {"--snapshots", PathText(stage.File("a")), "--record",
                                          PathText(stage.File("take.mkv"))});
  ASSERT_TRUE(ShowsPictures(stage.File("a")));
  phone.Interrupt();
  EXPECT_EQ(phone.Wait(), kExitGood);
  EXPECT_TRUE(phone.Complaints().empty()) << testing::PrintToString(phone.Complaints());
  ExpectGoodPictures(phone.Summary());
  const VideoFile take = ReadVideoFile(stage.File("take.mkv"));
  EXPECT_EQ(take.error, "");
  EXPECT_GE(take.pictures, phone.Summary()["decoder"]["decoded"]);
  EXPECT_GT(stage.EndHost()["frames_pushed"], 0);
}

TEST(SuddenEnd, TheHostTakesCtrlCWhileAPhoneWatches) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  StandIn& phone =
      stage.StartPhone("a", {"--no-reconnect", "--snapshots", PathText(stage.File("a"))});
  ASSERT_TRUE(ShowsPictures(stage.File("a")));
  stage.EndHost();
  EXPECT_EQ(phone.Wait(), kExitLost) << testing::PrintToString(phone.Complaints());
  ExpectGoodPictures(phone.Summary(), kExitLost);
}

}  // namespace
}  // namespace Veldrift
