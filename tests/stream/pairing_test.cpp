// Who gets in, and who has to go for it.
#include <gtest/gtest.h>

#include "platform/file.h"
#include "tests/stream/stage.h"
#include "tools/phone/phone_exit.h"

namespace Veldrift {
namespace {

TEST(Pairing, AKnownPhoneComesBackByItsTokenWithoutACode) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  StandIn& first = stage.StartPhone("a", {"--seconds", "1.5"});
  EXPECT_EQ(first.Wait(), kExitGood);
  ExpectGoodPictures(first.Summary());
  EXPECT_EQ(stage.CountInHostLog("pair: challenge="), 1u);
  StandIn& again = stage.StartPhoneWithoutCode("a", {"--seconds", "1.5"});
  EXPECT_EQ(again.Wait(), kExitGood) << testing::PrintToString(again.Complaints());
  ExpectGoodPictures(again.Summary());
  EXPECT_EQ(stage.CountInHostLog("pair: challenge="), 1u);
  stage.EndHost();
}

TEST(Pairing, APhoneThatComesWhileTheHostStandsStillSeesItsLastPicture) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost({"--size", "640x360", "--pause-after", "3"}));
  StandIn& first = stage.StartPhone("a", {"--codec", "h264", "--seconds", "4"});
  EXPECT_EQ(first.Wait(), kExitGood) << testing::PrintToString(first.Complaints());
  ASSERT_TRUE(Eventually([&] { return stage.CountInHostLog(":INFO] StopClock") == 1; }));
  StandIn& late = stage.StartPhone("b", {"--seconds", "1"});
  EXPECT_EQ(late.Wait(), kExitGood) << testing::PrintToString(late.Complaints());
  EXPECT_GE(late.Summary()["decoder"]["decoded"], 1);
  EXPECT_GT(late.Summary()["first_picture_ms"], 0);
  stage.EndHost();
}

TEST(Pairing, AWrongCodeIsRefusedAndTheNextPhoneGetsIn) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  // One code in a million is the right one; two tries tell a refusal from an accident.
  StandIn& guess = stage.StartPhoneWithoutCode("a", {"--code", "000000", "--seconds", "1"});
  EXPECT_EQ(guess.Wait(), kExitRefused);
  EXPECT_EQ(guess.Complaints(), std::vector<std::string>{"veldrift-phone: the plug-in refused the "
                                                         "pairing: the code was wrong"});
  EXPECT_FALSE(std::filesystem::exists(stage.File("a.token")));
  StandIn& mute = stage.StartPhoneWithoutCode("b", {"--seconds", "1"});  // nobody types a code
  EXPECT_EQ(mute.Wait(), kExitRefused);
  StandIn& right = stage.StartPhone("a", {"--seconds", "1.5"});
  EXPECT_EQ(right.Wait(), kExitGood);
  ExpectGoodPictures(right.Summary());
  stage.EndHost();
}

TEST(Pairing, ASecondPhoneTakesTheFirstOnesPlace) {
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(stage.StartHost());
  StandIn& first =
      stage.StartPhone("a", {"--no-reconnect", "--snapshots", PathText(stage.File("a"))});
  ASSERT_TRUE(ShowsPictures(stage.File("a")));
  StandIn& second = stage.StartPhone("b", {"--seconds", "2"});
  // Nothing tells the first to stop but the end of its connection; what it got was good.
  EXPECT_EQ(first.Wait(), kExitLost) << testing::PrintToString(first.Complaints());
  ExpectGoodPictures(first.Summary(), kExitLost);
  EXPECT_EQ(second.Wait(), kExitGood) << testing::PrintToString(second.Complaints());
  ExpectGoodPictures(second.Summary());
  stage.EndHost();
}

}  // namespace
}  // namespace Veldrift
