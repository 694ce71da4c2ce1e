#include "tools/receiver/arrival_ledger.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/tools/sender.h"

namespace Veldrift {
namespace {

constexpr size_t kFiveFragments = 5 * 1440 - 7;

struct Network {
  // Sends the sender's next frame; the fragments named are lost.
  void Send(const std::vector<size_t>& lost) {
    const std::vector<Datagram> datagrams = sender.Next(kFiveFragments, /*parityCount=*/2);
    for (size_t i = 0; i < datagrams.size(); ++i) {
      ledger.Note(datagrams[i], std::find(lost.begin(), lost.end(), i) != lost.end());
    }
  }

  TestSender sender{};
  ArrivalLedger ledger{};
};

TEST(ArrivalLedger, TellsFramesThatCouldHaveBeenRepairedFromOthers) {
  Network network;
  for (const auto& lost : std::vector<std::vector<size_t>>{{}, {0, 6}, {0, 3, 6}, {1}}) {
    network.Send(lost);
  }
  network.ledger.Delivered(0);
  network.ledger.Delivered(3);
  const std::vector<LostFrame> found = network.ledger.Lost();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].frameNumber, 1);
  EXPECT_EQ(found[0].dataCount, 5u);
  EXPECT_EQ(found[0].parityCount, 2u);
  EXPECT_EQ(found[0].came, 5u);
  EXPECT_TRUE(found[0].Repairable());
  EXPECT_EQ(found[1].frameNumber, 2);
  EXPECT_EQ(found[1].came, 4u);
  EXPECT_EQ(found[1].dropped, 3u);
  EXPECT_FALSE(found[1].Repairable());
}

TEST(ArrivalLedger, AnotherSendersFramesAreNotTakenForOldOnes) {
  Network network{.sender = {.frameNumber = 5'000}};
  for (int i = 0; i < 3; ++i) network.Send({});
  network.ledger.Delivered(5'000);
  network.ledger.Delivered(5'002);
  network.ledger.BeginAnew();
  network.sender.frameNumber = 0;
  network.Send({});
  network.Send({});
  network.ledger.Delivered(1);
  const std::vector<LostFrame> found = network.ledger.Lost();
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].frameNumber, 5'001);
  EXPECT_EQ(found[1].frameNumber, 0);
}

TEST(ArrivalLedger, AFragmentThatComesTwiceCountsOnce) {
  ArrivalLedger ledger;
  TestSender sender;
  const Datagram first = sender.Next(kFiveFragments, 2)[0];
  ledger.Note(first, false);
  ledger.Note(first, false);
  ledger.Delivered(1);
  ASSERT_EQ(ledger.Lost().size(), 1u);
  EXPECT_EQ(ledger.Lost()[0].came, 1u);
}

TEST(ArrivalLedger, FollowsNumbersThatWrapAndFramesThatAreLongGone) {
  Network network;
  network.sender.frameNumber = 65'500;
  for (int i = 0; i < 2'000; ++i) {
    const uint16_t number = network.sender.frameNumber;
    network.Send({});
    if (i % 1'000 != 10) network.ledger.Delivered(number);
  }
  const std::vector<LostFrame> lost = network.ledger.Lost();
  ASSERT_EQ(lost.size(), 2u);
  EXPECT_EQ(lost[0].frameNumber, 65'510);
  EXPECT_EQ(lost[1].frameNumber, 974);  // 65,500 + 1,010 - 65,536
}

}  // namespace
}  // namespace Veldrift
