// Several who watch one stream: where each begins, who is too slow, and what is kept.
#include "tools/phone/web_broadcast.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "tests/support/eventually.h"
#include "tests/support/manual_clock.h"

namespace Veldrift {
namespace {

class Broadcast : public testing::Test {
 protected:
  // A fragment is one letter, a key frame's a capital; below 'n' there is none of sound.
  void Push(const std::string& letters, size_t size = 1) {
    for (const char c : letters) {
      const bool sound = c >= 'n' && c <= 'z';
      WebFragment fragment{ByteVector(size, std::byte(c)), !sound, c < 'a', 0};
      broadcast_.Push(std::move(fragment));
    }
  }
  void Begin(const std::string& init = "<") {
    WebEpoch epoch;
    for (const char c : init) epoch.init.push_back(std::byte(c));
    epoch.silentInit = {std::byte('(')};
    epoch.codecs = "both";
    epoch.silentCodecs = "one";
    broadcast_.Begin(std::move(epoch));
  }
  std::unique_ptr<WebBroadcast::Viewer> Watch(bool sound = true) {
    return broadcast_.Watch(sound, 0);
  }
  // What is there for it; "." at the end: it is over.
  std::string Read(WebBroadcast::Viewer& viewer) {
    const int64_t nowNs = clock_.NowNanos();
    std::string text;
    std::byte piece[64];
    while (true) {
      const size_t count = viewer.Read(piece);
      if (count == 0) text += ".";
      if (count == 0 || count == 8) break;
      text += char(piece[0]);
    }
    clock_.AdvanceTo(nowNs);
    return text;
  }
  void Pass(int millis) { clock_.Advance(millis * kNanosPerMilli); }

  class HastyClock : public ManualClock {
   public:
    void WaitUntil(CondVar&, MutexLock&, int64_t deadline) override { AdvanceTo(deadline); }
  };
  HastyClock clock_;
  WebBroadcast broadcast_{clock_};
};

TEST_F(Broadcast, BeginsWithANewKeyFrameAtOnceAndElseWishesForOne) {
  EXPECT_EQ(Watch(), nullptr);
  Push("x");  // before anything has begun
  Begin();
  Push("Kab");
  auto first = Watch();
  EXPECT_EQ(Read(*first), "<Kab");
  EXPECT_FALSE(broadcast_.KeyFrameWanted());
  Pass(600);
  Push("c");
  auto second = Watch();  // joins a group that is old
  EXPECT_TRUE(broadcast_.KeyFrameWanted());
  Push("dLe");
  EXPECT_EQ(Read(*second), "<Le");
  EXPECT_EQ(Read(*first), "cdLe");
  EXPECT_FALSE(broadcast_.KeyFrameWanted());
  EXPECT_EQ(broadcast_.ViewerCount(), 2U);
  second.reset();
  EXPECT_EQ(broadcast_.ViewerCount(), 1U);
}

TEST_F(Broadcast, InAPauseBeginsWithTheLastKeyFrameAndAllThatFollowed) {
  Begin();
  Push("KabLcd");
  Pass(60'000);
  auto viewer = Watch();
  EXPECT_EQ(Read(*viewer), "<Lcd");
  Push("e");
  EXPECT_EQ(Read(*viewer), "e");
}

TEST_F(Broadcast, OneThatWaitsWhenTheHostPausesStillGetsThePicture) {
  Begin();
  Push("K");
  Pass(600);
  Push("a");
  auto viewer = Watch();
  EXPECT_TRUE(broadcast_.KeyFrameWanted());
  EXPECT_EQ(Read(*viewer), "<Ka");  // while it read, nothing came
  EXPECT_FALSE(broadcast_.KeyFrameWanted());
}

TEST_F(Broadcast, WhoDoesntHearGetsNoSound) {
  Begin();
  Push("Knapb");
  auto hears = Watch();
  auto doesnt = Watch(false);
  EXPECT_EQ(hears->Codecs(), "both");
  EXPECT_EQ(doesnt->Codecs(), "one");
  EXPECT_EQ(Read(*hears), "<Knapb");
  EXPECT_EQ(Read(*doesnt), "(Kab");
}

TEST_F(Broadcast, OneThatIsTooSlowEndsAndTheOthersGoOn) {
  Begin();
  Push("K");
  auto quick = Watch();
  auto slow = Watch();
  std::string seen = Read(*quick);
  for (int i = 0; i < 12; ++i) {
    Push("a");
    seen += Read(*quick);
    Pass(100);
  }
  EXPECT_EQ(seen, "<K" + std::string(12, 'a'));
  EXPECT_EQ(Read(*slow), "<.");
}

TEST_F(Broadcast, KeepsNoMoreThanItMay) {
  Begin();
  Push("K");
  auto lazy = Watch();
  EXPECT_EQ(Read(*lazy), "<K");
  std::string letters(30, 'a');
  Push(letters, 1 << 20);
  EXPECT_EQ(Read(*lazy), ".");  // what it would need has gone
  // And so has the key frame: a new one is wished for, also in a pause.
  Pass(5'000);
  auto late = Watch();
  EXPECT_EQ(Read(*late), "<");
  EXPECT_TRUE(broadcast_.KeyFrameWanted());
}

TEST_F(Broadcast, AnotherFileEndsAllThatWatchAndStopEndsThemForGood) {
  Begin();
  Push("Ka");
  auto viewer = Watch();
  auto waits = Watch();
  EXPECT_EQ(Read(*viewer), "<Ka");
  Begin("[");
  EXPECT_EQ(Read(*viewer), ".");
  EXPECT_EQ(Read(*waits), "<.");
  auto next = Watch();
  Push("L");
  EXPECT_EQ(Read(*next), "[L");
  broadcast_.Stop();
  EXPECT_EQ(Read(*next), ".");
  EXPECT_EQ(Watch(), nullptr);
  viewer.reset();
  waits.reset();
  next.reset();
  EXPECT_FALSE(broadcast_.KeyFrameWanted());
}

// With the system's clock: one waits for what another thread pushes.
TEST(BroadcastThreads, ManyWatchWhatOnePushes) {
  WebBroadcast broadcast(SystemClock());
  broadcast.Begin({{std::byte('<')}, {std::byte('<')}, "", ""});
  std::atomic<int> begun{0};
  std::atomic<int> whole{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      const auto viewer = broadcast.Watch(true, kNanosPerSecond);
      std::string text;
      std::byte piece[16];
      while (const size_t count = viewer->Read(piece)) {
        if (count == 1) text += char(piece[0]);
        if (text == "<") ++begun;
        if (text.size() == 202) ++whole;
      }
      EXPECT_EQ(text, "<K" + std::string(200, 'a'));
    });
  }
  EXPECT_TRUE(Eventually([&] { return begun >= 4; }));
  broadcast.Push({{std::byte('K')}, true, true, 0});
  for (int i = 0; i < 200; ++i) broadcast.Push({{std::byte('a')}, true, false, 0});
  EXPECT_TRUE(Eventually([&] { return whole >= 4; }));
  broadcast.Stop();
  for (std::thread& thread : threads) thread.join();
}

}  // namespace
}  // namespace Veldrift
