// The host's clock, from the host's side: how much time it is told of, and what may happen inside
// its callback.
#include "session/host_clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

constexpr int64_t kTicksPerSecond = 1'000'000;
constexpr int32_t kFps = 25;
constexpr int64_t kFrame = kNanosPerSecond / kFps;

struct Listener final : IClockListener {
  explicit Listener(std::function<void(int64_t, int64_t)> onTick) : tick(std::move(onTick)) {}
  void OnStart() override {}
  void OnTick(const ClockTick& now) override { tick(now.elapsedNanos, now.playedNanos); }
  std::function<void(int64_t, int64_t)> tick;
};

class HostClockTest : public testing::Test {
 protected:
  static void Called(void* self, int64_t ticks) {
    static_cast<HostClockTest*>(self)->OnCallback(ticks);
  }
  void OnCallback(int64_t count) {
    ticks += count;
    if (duringCallback) duringCallback();
    ++callbacks;
  }

  HostClock::StartResult Start(std::function<void(int64_t, int64_t)> onTick = {}) {
    const Host::ClockRecord record{Called, this, Host::kPlayModePlaying};
    return clock->Start(record, kTicksPerSecond, kFps,
                        onTick ? std::make_unique<Listener>(std::move(onTick)) : nullptr);
  }
  // One tick more, `late` behind its place.
  void PassFrame(int64_t late = 0) {
    const int before = callbacks;
    time.Advance(kFrame + late);
    EXPECT_TRUE(Eventually([&] { return callbacks > before; }));
  }

  const ScratchHome home;
  ManualClock time;
  SharedTransport shared{time, 0};
  PlaybackClaim claim{shared};
  std::atomic<int64_t> ticks{0};
  std::atomic<int> callbacks{0};
  std::function<void()> duringCallback;
  std::unique_ptr<HostClock> clock = std::make_unique<HostClock>(claim, time);
};

TEST_F(HostClockTest, TicksTellOfAllTheTimeAndStandOnAGrid) {
  const int64_t start = time.NowNanos();
  ASSERT_EQ(Start(), HostClock::StartResult::Started);
  EXPECT_EQ(Start(), HostClock::StartResult::NotStarted);
  for (int i = 0; i < 10 && !HasFailure(); ++i) PassFrame(i % 2 == 0 ? kFrame / 4 : -kFrame / 4);
  EXPECT_EQ(ticks, (time.NowNanos() - start) * kTicksPerSecond / kNanosPerSecond);
  EXPECT_EQ(callbacks, 10);
  // A long sleep of the machine is one tick, and the next one is back on the grid.
  PassFrame(5 * kFrame - kFrame / 10);
  EXPECT_EQ(callbacks, 11);
  time.Advance(kFrame / 10);
  EXPECT_TRUE(Eventually([&] { return callbacks == 12; }));
  clock->Stop();
  EXPECT_EQ(ticks, (time.NowNanos() - start) * kTicksPerSecond / kNanosPerSecond);
}

TEST_F(HostClockTest, OnlyAPlaybackWithACallbackStartsIt) {
  EXPECT_EQ(
      clock->Start({Called, this, Host::kPlayModePlaying + 1}, kTicksPerSecond, kFps, nullptr),
      HostClock::StartResult::NotStarted);
  EXPECT_EQ(clock->Start({nullptr, this, Host::kPlayModePlaying}, kTicksPerSecond, kFps, nullptr),
            HostClock::StartResult::NotStarted);
  clock->Stop();
  EXPECT_EQ(CountInPluginLog("playback state"), 0U);
}

TEST_F(HostClockTest, StoppedFromItsOwnCallbackItEndsAndCanBeStartedAgain) {
  std::atomic<int> listened{0};
  duringCallback = [&] { clock->Stop(); };
  ASSERT_EQ(Start([&](int64_t, int64_t) { ++listened; }), HostClock::StartResult::Started);
  PassFrame();
  time.Advance(10 * kFrame);
  EXPECT_EQ(CountInPluginLog("playback state -> 0 (running clocks=0)"), 1U);
  duringCallback = nullptr;
  ASSERT_EQ(Start(), HostClock::StartResult::Started);
  PassFrame();
  clock->Stop();
  EXPECT_EQ(callbacks, 2);
  EXPECT_EQ(listened, 0);
}

TEST_F(HostClockTest, ALoopingHostStopsAndStartsItFromTheCallback) {
  std::atomic<int> loops{0};
  duringCallback = [&] {
    if (++loops > 3) return;
    clock->Stop();
    EXPECT_EQ(Start(), HostClock::StartResult::Started);
  };
  ASSERT_EQ(Start(), HostClock::StartResult::Started);
  for (int i = 0; i < 5 && !HasFailure(); ++i) PassFrame();
  clock.reset();
  EXPECT_EQ(callbacks, 5);
}

TEST_F(HostClockTest, DestroyedFromItsOwnCallbackItLeavesNothingRunning) {
  duringCallback = [&] { clock.reset(); };
  ASSERT_EQ(Start(), HostClock::StartResult::Started);
  PassFrame();
  time.Advance(10 * kFrame);
  HostClock next(claim, time);  // joins what is left
  EXPECT_EQ(callbacks, 1);
}

TEST_F(HostClockTest, StopWaitsForTheCallbackThatIsUnderWay) {
  Gate gate;
  gate.Shut();
  std::atomic<bool> finished{false}, stopped{false}, finishedBefore{false};
  duringCallback = [&] {
    gate.Pass();
    finished = true;
  };
  ASSERT_EQ(Start(), HostClock::StartResult::Started);
  time.Advance(kFrame);
  gate.AwaitSomebody();
  std::thread stopper([&] {
    clock->Stop();
    finishedBefore = finished.load();
    stopped = true;
  });
  EXPECT_TRUE(Eventually([] { return CountInPluginLog("playback state -> 0") == 1; }));
  // One that doesn't wait gets the time to show it.
  for (int i = 0; i < 200 && !stopped; ++i) std::this_thread::yield();
  gate.Open();
  stopper.join();
  EXPECT_TRUE(finishedBefore);
}

// The host holds a lock around its call to stop which its callback wants.
TEST_F(HostClockTest, ACallbackThatWaitsForTheStoppingThreadHoldsItUpForAWhileOnly) {
  Mutex hostLock;
  std::atomic<bool> inCallback{false};
  duringCallback = [&] {
    inCallback = true;
    MutexLock lock(hostLock);
  };
  ASSERT_EQ(Start(), HostClock::StartResult::Started);
  {
    MutexLock lock(hostLock);
    time.Advance(kFrame);
    ASSERT_TRUE(Eventually([&] { return inCallback.load(); }));
    std::atomic<bool> stopped{false};
    std::thread passing([&] {
      while (!stopped) {
        time.Advance(100 * kNanosPerMilli);
        SystemClock().SleepFor(kNanosPerMilli);
      }
    });
    clock->Stop();
    stopped = true;
    passing.join();
  }
  EXPECT_EQ(CountInPluginLog("StopClock: the host's callback hasn't returned"), 1U);
  clock.reset();  // waits for the callback, which goes on now
  EXPECT_EQ(callbacks, 1);
}

TEST_F(HostClockTest, AnExceptionCostsOneTick) {
  std::atomic<int> listened{0};
  ASSERT_EQ(Start([&](int64_t, int64_t) {
              if (++listened == 1) throw std::bad_alloc();
            }),
            HostClock::StartResult::Started);
  for (int i = 0; i < 3 && !HasFailure(); ++i) PassFrame();
  ASSERT_TRUE(Eventually([&] { return listened == 3; }));
  clock->Stop();
  EXPECT_EQ(callbacks, 3);
}

}  // namespace
}  // namespace Veldrift
