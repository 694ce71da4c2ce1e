#include "identity/wire_watch.h"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

const std::vector<std::string> kUs = {"Other._veldrift._tcp.local", "Desk._veldrift._tcp.local"};
const std::vector<std::string> kOthers = {"Other._veldrift._tcp.local"};
constexpr int64_t kNow = 100'000'000'000;
constexpr int64_t kTurn = 1'500'000'000;

class WireWatchTest : public testing::Test {
 protected:
  WireWatchTest() { watch.Expect("Desk._veldrift._tcp.local"); }

  bool BelievedAbsent() { return watch.TakeRepublishTurn(INT64_MAX); }

  WireWatch watch;
};

TEST_F(WireWatchTest, OneResultWithoutUsIsNotBelievedAndTwoInARowAre) {
  watch.TakeResult(kOthers, kNow);
  EXPECT_FALSE(BelievedAbsent());
  watch.TakeResult(kUs, kNow);
  watch.TakeResult(kOthers, kNow);
  EXPECT_FALSE(BelievedAbsent()) << "not in a row";
  watch.TakeResult(kOthers, kNow);
  EXPECT_TRUE(BelievedAbsent());
}

TEST_F(WireWatchTest, AnEmptyResultSaysNothing) {
  for (int i = 0; i < 5; ++i) watch.TakeResult({}, kNow);
  EXPECT_FALSE(BelievedAbsent());
  watch.TakeResult(kOthers, kNow);
  watch.TakeResult({}, kNow);
  watch.TakeResult(kOthers, kNow);
  EXPECT_TRUE(BelievedAbsent()) << "it doesn't break a row either";
}

TEST_F(WireWatchTest, TheTurnsComeEveryOneAndAHalfSeconds) {
  watch.TakeResult(kOthers, kNow - 1);
  watch.TakeResult(kOthers, kNow);
  EXPECT_FALSE(watch.TakeRepublishTurn(kNow + kTurn - 1));
  watch.TakeResult(kOthers, kNow + kTurn - 1);  // a further miss doesn't delay it
  EXPECT_TRUE(watch.TakeRepublishTurn(kNow + kTurn + 7));
  EXPECT_FALSE(watch.TakeRepublishTurn(kNow + 2 * kTurn + 6));
  EXPECT_TRUE(watch.TakeRepublishTurn(kNow + 2 * kTurn + 7));
}

TEST_F(WireWatchTest, BeingSeenAgainEndsIt) {
  watch.TakeResult(kOthers, kNow);
  watch.TakeResult(kOthers, kNow);
  watch.TakeResult(kUs, kNow);
  EXPECT_FALSE(BelievedAbsent());
  watch.TakeResult(kOthers, kNow);
  EXPECT_FALSE(BelievedAbsent()) << "the count starts anew";
}

TEST_F(WireWatchTest, AnotherNameCanBecomeOurs) {
  watch.TakeResult(kOthers, kNow);
  watch.TakeResult(kOthers, kNow);
  watch.Expect("Other._veldrift._tcp.local");
  EXPECT_FALSE(BelievedAbsent());
  for (int i = 0; i < 5; ++i) watch.TakeResult(kOthers, kNow);
  EXPECT_FALSE(BelievedAbsent());
}

TEST_F(WireWatchTest, CaseDoesNotMatterAndAllElseDoes) {
  for (int i = 0; i < 3; ++i) watch.TakeResult({"dESK._VELDRIFT._tcp.LOCAL"}, kNow);
  EXPECT_FALSE(BelievedAbsent());
  EXPECT_FALSE(SameDnsName("Desk", "Des"));
  EXPECT_FALSE(SameDnsName("Desk", "Desk "));
  EXPECT_FALSE(SameDnsName("[", "{")) << "not a letter";
}

TEST(WireWatch, ExpectsNothingBeforeItIsToldTo) {
  WireWatch watch;
  for (int i = 0; i < 3; ++i) watch.TakeResult(kOthers, kNow);
  EXPECT_FALSE(watch.TakeRepublishTurn(INT64_MAX));
}

}  // namespace
}  // namespace Veldrift
