#include "net/pacer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <utility>
#include <vector>

#include "net/token_bucket.h"
#include "tests/support/eventually.h"
#include "tests/support/manual_clock.h"
#include "tests/support/one_by_one.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

constexpr int64_t kMilli = kNanosPerMilli;

TEST(TokenBucket, AStallIsRepaidWithOneBurstAndNoMore) {
  TokenBucket bucket(0);
  // 8 Mbit/s are 1,000 bytes a millisecond; 20 ms are 20,000 bytes.
  EXPECT_EQ(bucket.TakeOrWait(20'000, 8'000'000, 500 * kMilli), 0);
  EXPECT_EQ(bucket.TakeOrWait(1'200, 8'000'000, 500 * kMilli), 1'200'000);
  EXPECT_EQ(bucket.TakeOrWait(1'200, 8'000'000, 501 * kMilli), 200'000);
  EXPECT_EQ(bucket.TakeOrWait(1'200, 8'000'000, 501 * kMilli + 200'000), 0);
}

TEST(TokenBucket, ShortWaitsAreFiftyMicrosecondsAndADatagramAlwaysFits) {
  TokenBucket fast(0);
  EXPECT_EQ(fast.TakeOrWait(1'000, 1'000'000'000, 0), 50'000);  // 8 us would do
  TokenBucket slow(0);
  // At 0.5 Mbit/s 20 ms are 1,250 bytes; 1,400 bytes take 22.4 ms.
  EXPECT_EQ(slow.TakeOrWait(1'400, 500'000, 0), 22'400'000);
  EXPECT_EQ(slow.TakeOrWait(1'400, 500'000, 22'400'000), 0);
}

TEST(TokenBucket, ARateOfZeroWaitsAndAsksAgain) {
  TokenBucket bucket(0);
  EXPECT_EQ(bucket.TakeOrWait(100, 0, kNanosPerSecond), kNanosPerSecond);
}

// Groups of one datagram whose first byte is its mark.
FrameGroup Group(bool video, int mark, size_t bytes = 100) {
  FrameGroup group(video, 1, bytes);
  std::fill_n(group.Append(bytes), bytes, std::byte(mark));
  return group;
}

// A pacer whose sender can be held up, so that the queue fills.
class HeldPacer : public testing::Test {
 protected:
  void SetUp() override {
    pacer.SetBitrate(1'000'000'000);
    const auto send = OneByOne([this](std::span<const std::byte> bytes) { return Send(bytes); });
    pacer.Start(send, send);
  }

  void TearDown() override {
    Release();
    pacer.Stop();
  }

  bool Send(std::span<const std::byte> bytes) {
    MutexLock lock(mutex);
    sending = true;
    changed.NotifyAll();
    while (held) changed.Wait(lock);
    sent.push_back(std::to_integer<int>(bytes[0]));
    changed.NotifyAll();
    return accepted;
  }

  // Keeps the worker inside the sender with a first group, so that all that follows is queued.
  void Hold() {
    pacer.Enqueue(Group(true, 0));
    MutexLock lock(mutex);
    while (!sending) changed.Wait(lock);
  }

  void Release() {
    MutexLock lock(mutex);
    held = false;
    changed.NotifyAll();
  }

  std::vector<int> SentOnceThereAre(size_t count) {
    MutexLock lock(mutex);
    while (sent.size() < count) changed.Wait(lock);
    return sent;
  }

  ManualClock clock;
  Pacer pacer{clock};
  Mutex mutex;
  CondVar changed;
  bool held VD_GUARDED_BY(mutex) = true;
  bool sending VD_GUARDED_BY(mutex) = false;
  bool accepted VD_GUARDED_BY(mutex) = true;
  std::vector<int> sent VD_GUARDED_BY(mutex);
};

TEST_F(HeldPacer, OverflowPushesOutTheOldestOfItsKindAndKeepsTheOrder) {
  Hold();
  for (const int mark : {1, 2, 3}) pacer.Enqueue(Group(true, mark));
  for (const int mark : {101, 102, 103, 104}) pacer.Enqueue(Group(false, mark));
  for (const int mark : {4, 5, 6}) pacer.Enqueue(Group(true, mark));
  EXPECT_EQ(pacer.TotalDropped(), 1U);
  pacer.Enqueue(Group(false, 105));
  EXPECT_EQ(pacer.TotalDropped(), 2U);
  Release();
  EXPECT_EQ(SentOnceThereAre(10), (std::vector{0, 2, 3, 102, 103, 104, 4, 5, 6, 105}));
}

TEST_F(HeldPacer, OverflowsAreLoggedAtOnceAndThenOnceASecond) {
  const std::string first = "Pacer overflow: dropped 1 video frame(s) in last ~1s (100 bytes). ";
  const std::string rest = "Pacer overflow: dropped 10 video frame(s) in last ~1s (1000 bytes). ";
  Hold();
  const size_t before = CountInPluginLog("Pacer overflow");
  const int64_t start = clock.NowNanos();
  for (int i = 0; i < 5 + 10; ++i) pacer.Enqueue(Group(true, 1));
  EXPECT_EQ(CountInPluginLog("Pacer overflow"), before + 1);
  EXPECT_GE(CountInPluginLog(first), 1U);
  clock.AdvanceTo(start + 2 * kNanosPerSecond);
  pacer.Enqueue(Group(true, 1));
  EXPECT_EQ(CountInPluginLog("Pacer overflow"), before + 2);
  EXPECT_EQ(CountInPluginLog(rest), 1U);
}

TEST_F(HeldPacer, ClearedGroupsAreGoneAndNotCountedAsDropped) {
  pacer.ClearQueue();
  EXPECT_EQ(CountInPluginLog("Pacer queue cleared"), 0U);
  Hold();
  for (const int mark : {1, 2, 3}) pacer.Enqueue(Group(true, mark));
  pacer.ClearQueue();
  EXPECT_EQ(CountInPluginLog("Pacer queue cleared: 3 frame groups (300 bytes) discarded"), 1U);
  pacer.Enqueue(Group(true, 9));
  Release();
  EXPECT_EQ(SentOnceThereAre(2), (std::vector{0, 9}));
  EXPECT_EQ(pacer.TotalDropped(), 0U);
}

TEST_F(HeldPacer, RefusedDatagramsAreCountedAndNotRepeated) {
  {
    MutexLock lock(mutex);
    accepted = false;
    held = false;
  }
  pacer.Enqueue(Group(true, 1));
  pacer.Enqueue(Group(false, 2));
  EXPECT_EQ(SentOnceThereAre(2), (std::vector{1, 2}));
  pacer.Stop();
  EXPECT_EQ(pacer.TotalFailed(), 2U);
  EXPECT_EQ(pacer.TotalBytes(), 0U);
}

TEST_F(HeldPacer, MayBeStartedAgain) {
  Release();
  pacer.Stop();
  pacer.Stop();
  int count = 0;
  const auto send = OneByOne([&count](std::span<const std::byte>) {
    ++count;
    return true;
  });
  pacer.Start(send, send);
  pacer.Start(nullptr, nullptr);  // keeps the senders that it has
  pacer.Enqueue(Group(true, 1));
  ASSERT_TRUE(Eventually([&] { return pacer.TotalBytes() >= 100; }));
  pacer.Stop();
  EXPECT_EQ(count, 1);
}

TEST(Pacer, KeepsTheRateInVirtualTime) {
  for (const uint32_t rate : {500'000U, 10'000'000U, 300'000'000U}) {
    ManualClock clock;
    std::vector<std::pair<int64_t, size_t>> sent;
    Pacer pacer(clock);
    pacer.SetBitrate(rate);
    const auto send = OneByOne([&](std::span<const std::byte> bytes) {
      sent.emplace_back(clock.NowNanos(), bytes.size());
      return true;
    });
    pacer.Start(send, send);
    const int64_t start = clock.NowNanos();
    constexpr size_t kDatagrams = 400;
    FrameGroup group(true, kDatagrams, 1466);
    for (size_t i = 0; i < kDatagrams; ++i) std::fill_n(group.Append(1466), 1466, std::byte{1});
    pacer.Enqueue(std::move(group));
    ASSERT_TRUE(Eventually([&] { return pacer.TotalBytes() >= kDatagrams * 1466; }));
    pacer.Stop();

    const double seconds = double(sent.back().first - start) / 1e9;
    EXPECT_NEAR(double(kDatagrams) * 1466 * 8 / seconds, rate, rate * 0.01) << rate;
  }
}

// What the bucket lets go at once goes to the system at once, and never more than that.
TEST(Pacer, SendsInBatchesWithinTheBucket) {
  ManualClock clock;
  Pacer pacer(clock);
  pacer.SetBitrate(10'000'000);  // 20 ms are 25,000 bytes: 17 datagrams
  std::vector<size_t> batches;
  std::atomic<size_t> count{0};
  const auto send = [&](Datagrams datagrams) {
    batches.push_back(datagrams.size());
    count += datagrams.size();
    return DatagramsTaken{datagrams.size() - 1, 7};
  };
  pacer.Start(send, send);
  clock.Advance(kNanosPerSecond);  // the bucket is full
  FrameGroup group(true, 40, 1466);
  for (size_t i = 0; i < 40; ++i) std::fill_n(group.Append(1466), 1466, std::byte{1});
  pacer.Enqueue(std::move(group));
  ASSERT_TRUE(Eventually([&] { return count == 40; }));
  pacer.Stop();
  ASSERT_FALSE(batches.empty());
  EXPECT_EQ(batches[0], 17U);
  for (size_t i = 1; i < batches.size(); ++i) EXPECT_LE(batches[i], 2U) << i;
  EXPECT_EQ(pacer.TotalFailed(), batches.size());
  EXPECT_EQ(pacer.TotalBytes(), 7 * batches.size());
}

TEST(Pacer, AnExceptionCostsOneGroup) {
  ManualClock clock;
  Pacer pacer(clock);
  std::atomic<int> calls{0};
  const auto send = [&](Datagrams datagrams) -> DatagramsTaken {
    if (++calls == 1) throw std::bad_alloc();
    return {datagrams.size(), 1};
  };
  pacer.Start(send, send);
  for (int i = 0; i < 3; ++i) pacer.Enqueue(Group(true, i));
  EXPECT_TRUE(Eventually([&] { return pacer.TotalBytes() == 2; }));
  pacer.Stop();
}

}  // namespace
}  // namespace Veldrift
