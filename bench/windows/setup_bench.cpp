// What the setup window costs, under Wine: a tick of its timer when nothing and when everything has
// changed, painting it, and what many ticks and openings leave behind. Times are Wine's as much as
// ours: they compare with each other, and with no other system's.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "encoder/encoder_description.h"
#include "identity/install_identity.h"
#include "identity/trusted_peers.h"
#include "session/shared_transport.h"
#include "support/clock.h"
#include "tests/support/scratch.h"
#include "tests/window/our_windows.h"
#include "tests/window/window_objects.h"
#include "ui/setup_window.h"

namespace Veldrift {
namespace {

constexpr const wchar_t* kSetupKind = L"Veldrift.SetupDialog";
constexpr int kTicks = 1000;
constexpr int kRounds = 50;

HWND Open() {
  ShowSetupDialog();
  const HWND window = AwaitOurWindow(kSetupKind);
  Settle(window);
  return window;
}

void Close(HWND window) {
  CloseSetupDialog();
  AwaitGone(window);
}

template <typename Body>
void Print(const char* what, int times, Body&& body) {
  std::vector<int64_t> nanos;
  for (int i = 0; i < times; ++i) {
    const int64_t before = SteadyNanos();
    body(i);
    nanos.push_back(SteadyNanos() - before);
  }
  std::ranges::sort(nanos);
  std::printf("%-44s %9.1f %9.1f\n", what, double(nanos.front()) / 1e3,
              double(nanos[nanos.size() / 2]) / 1e3);
  std::fflush(stdout);
}

void Tick(HWND window) { SendMessageW(window, WM_TIMER, 1, 0); }

// Alternates between two states that differ in all that a session can tell.
class EverythingChanges {
 public:
  void Change(int turn) {
    const bool odd = turn % 2 != 0;
    transport_.CountRunningInstances(odd ? 1 : -1);
    encoder_.Set(odd ? "one [HW, 1920x1080 HEVC @ 30 fps, 15 Mbps]" : "another [SW]");
    transport_.SetEncoderStatus({0, odd ? "one" : "another", uint8_t(odd ? 1 : 0),
                                 odd ? GopClass::Long : GopClass::Short, true});
    RememberedSettings& settings = transport_.Settings();
    settings.RememberCodec(odd ? 1 : 0);
    settings.RememberGopSize(odd ? 1 : 15);
    settings.RememberShortSideCap(odd ? 720 : 1080);
    settings.RememberEncoderMode(odd ? 1 : 0, odd ? 50 : 60);
  }

 private:
  SharedTransport& transport_ = SharedTransport::Get();
  EncoderDescription encoder_;
};

void Rename(int turn) {
  AddOrUpdateTrustedPeer({"id-1", turn % 2 != 0 ? "One" : "Another", std::string(64, 'a'), ""});
}

void MeasureTicks(HWND window) {
  for (int i = 0; i < 3; ++i) {
    AddOrUpdateTrustedPeer({"id-" + std::to_string(i), "Phone", std::string(64, 'a'), ""});
  }
  Print("a message to the window, for comparison", kTicks, [&](int) { Settle(window); });
  Print("tick, nothing changed", kTicks, [&](int) { Tick(window); });
  SharedTransport::Get().CountRunningInstances(1);
  EverythingChanges everything;
  for (const bool phones : {false, true}) {
    std::vector<int64_t> nanos;
    for (int i = 0; i < kTicks / 4; ++i) {
      everything.Change(i);
      if (phones) Rename(i);
      const int64_t before = SteadyNanos();
      Tick(window);
      nanos.push_back(SteadyNanos() - before);
    }
    std::ranges::sort(nanos);
    std::printf("%-44s %9.1f %9.1f\n",
                phones ? "tick, every text and the phones changed" : "tick, every text changed",
                double(nanos.front()) / 1e3, double(nanos[nanos.size() / 2]) / 1e3);
  }
  SharedTransport::Get().CountRunningInstances(-1);
}

void MeasurePainting(HWND window) {
  constexpr UINT kAll = RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN | RDW_UPDATENOW;
  Print("painting all of it, folded", 200,
        [&](int) { RedrawWindow(window, nullptr, nullptr, kAll); });
  SendMessageW(window, WM_COMMAND, 2018, 0);
  Print("painting all of it, unfolded", 200,
        [&](int) { RedrawWindow(window, nullptr, nullptr, kAll); });
}

void PrintObjects(const char* what, const WindowObjects& before) {
  const WindowObjects now = CountWindowObjects();
  std::printf("%-44s %9td %9td\n", what, ptrdiff_t(now.gdi) - ptrdiff_t(before.gdi),
              ptrdiff_t(now.user) - ptrdiff_t(before.user));
}

int Run() {
  LoadOrCreateInstallIdentity();
  HWND window = Open();
  if (window == nullptr) {
    std::fprintf(stderr, "veldrift-bench-setup: there is no window here\n");
    return 1;
  }
  std::printf("%-44s %9s %9s\n", "in us", "least", "median");
  MeasureTicks(window);
  MeasurePainting(window);
  Print("opening and closing", kRounds / 2, [&](int) {
    Close(window);
    window = Open();
  });
  std::printf("\n%-44s %9s %9s\n", "left behind", "GDI", "user");
  WindowObjects before = CountWindowObjects();
  for (int i = 0; i < kTicks; ++i) {
    Rename(i);
    Tick(window);
  }
  PrintObjects("by 1000 ticks with a changed list of phones", before);
  before = CountWindowObjects();
  for (int i = 0; i < kRounds; ++i) {
    Close(window);
    window = Open();
  }
  PrintObjects("by 50 rounds of opening and closing", before);
  Close(window);
  return 0;
}

}  // namespace
}  // namespace Veldrift

int main() {
  const Veldrift::ScratchHome home;
  return Veldrift::Run();
}
