// Many pairing windows, and many who close them.
#include <string>
#include <thread>
#include <vector>

#include "tests/window/pairing_fixture.h"
#include "tests/window/window_objects.h"
#include "tools/platform/this_process.h"

namespace Veldrift {
namespace {

class PairingRounds : public PairingWindowTest {
 protected:
  // One window's life, with an end by turns: the user's, the handshake's, the destructor's.
  void Live(int turn) {
    const int before = cancels_;
    Show();
    const HWND window = AwaitOurWindow(kPairingKind);
    if (turn % 3 == 0) PostMessageW(window, WM_COMMAND, kCancel, 0);
    if (turn % 3 == 1) dialog_->Close();
    EXPECT_TRUE(turn % 3 == 2 || AwaitGone(window));
    EXPECT_TRUE(Eventually([&] { return cancels_ - before == (turn % 3 == 0); }));
    dialog_.reset();
  }
};

TEST_F(PairingRounds, ThirtyWindowsLeaveNothingBehind) {
  constexpr int kWarmUp = 3;  // what the system keeps for windows of all kinds
  for (int round = 0; round < kWarmUp; ++round) Live(round);
  const WindowObjects objects = CountWindowObjects();
  const ProcessResources resources = CountProcessResources();
  for (int round = 0; round < 30; ++round) Live(round);
  EXPECT_EQ(CountWindowObjects(), objects);
  // A handle now and then is the system's, which it keeps; one a window would be ours.
  ProcessResources now;
  EXPECT_TRUE(Eventually([&] {
    now = CountProcessResources();
    return now.threads <= resources.threads && now.handles <= resources.handles + 5;
  })) << now.threads
      << " threads and " << now.handles << " handles, before " << resources.threads << " and "
      << resources.handles;
}

// Whoever comes first, at whatever moment of the window's life: it goes, its thread ends, and the
// handshake is called at most once.
TEST_F(PairingRounds, TwentyThreadsRaceToCloseAndToCancel) {
  for (int round = 0; round < 40; ++round) {
    SCOPED_TRACE(round);
    cancels_ = 0;
    std::atomic<bool> go{false};
    std::vector<std::thread> racers;
    for (int i = 0; i < 20; ++i) {
      racers.emplace_back([this, i, &go] {
        while (!go) std::this_thread::yield();
        if (i % 2 == 0) {
          dialog_->Close();
        } else {
          PostMessageW(FindOurWindow(kPairingKind), WM_COMMAND, kCancel, 0);
        }
      });
    }
    Show();
    // In every other round the window is there already.
    EXPECT_TRUE(round % 2 != 0 || AwaitOurWindow(kPairingKind));
    go = true;
    for (std::thread& racer : racers) racer.join();
    EXPECT_TRUE(Eventually([] { return FindOurWindow(kPairingKind) == nullptr; }));
    EXPECT_LE(CancelsInTheEnd(), 1);
  }
}

// The handshake's Close at any moment of the window's coming up: none is lost.
TEST_F(PairingRounds, ACloseAtAnyMomentOfTheWindowsStartClosesIt) {
  OpenOnce();
  ClassTap tap(kPairingKind, [](HWND, UINT, WPARAM, LPARAM) { return std::nullopt; });
  for (int round = 0; round < 60; ++round) {
    SCOPED_TRACE(round);
    Show();
    for (int i = 0; i < round * 40; ++i) std::this_thread::yield();
    dialog_->Close();
    // Only the window's own thread can do it now.
    ASSERT_TRUE(Eventually([&] { return tap.Done(WM_DESTROY) == round + 1; }));
    EXPECT_EQ(CancelsInTheEnd(), 0);
  }
}

}  // namespace
}  // namespace Veldrift
