#include "ui/setup_window.h"

#include <exception>
#include <thread>

#include "platform/mutex.h"
#include "support/guarded.h"
#include "ui/win32/com_apartment.h"
#include "ui/win32/setup_dialog.h"
#include "ui/win32/setup_log.h"
// Needs windows.h before it.
#include <commctrl.h>

namespace Veldrift {
namespace {

constexpr DWORD kAllControls = 0xFF;

// Registers the common controls, which not every host has done.
void InitControls() {
  const INITCOMMONCONTROLSEX controls{sizeof controls, kAllControls};
  InitCommonControlsEx(&controls);
}

// Keys first mean what they mean in every dialog: Tab, Enter, Esc.
void RunMessageLoop(HWND window) {
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    if (IsDialogMessageW(window, &message)) continue;
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
}

// The one dialog of the process, and its thread.
//
// Threads: any. Nothing is done to the window under the mutex but posting to it.
class SetupDialogOwner {
 public:
  // Never destroyed: a thread that is still recorded would end a host that goes without a word.
  static SetupDialogOwner& Get() {
    static auto* owner = new SetupDialogOwner;
    return *owner;
  }

  void Show() {
    MutexLock lock(mutex_);
    if (phase_ != Phase::Closed) {
      wanted_ = true;
      // One that is just being made is a window in a moment.
      while (phase_ == Phase::Opening) {
        EndIfOnItsThread();
        changed_.Wait(lock);
      }
      // The window raises itself: nobody waits for a thread that is busy.
      if (phase_ == Phase::Open) PostMessageW(window_, kRaiseSetupDialog, 0, 0);
      if (phase_ != Phase::Closed) return;
    }
    EndIfOnItsThread();
    if (thread_.joinable()) thread_.join();
    phase_ = Phase::Opening;
    if (!RunGuarded(kSetupLog, "setup dialog's start",
                    [this] { thread_ = std::thread([this] { Run(); }); })) {
      phase_ = Phase::Closed;
    }
  }

  void Close() {
    MutexLock lock(mutex_);
    wanted_ = false;
    while (phase_ == Phase::Opening) changed_.Wait(lock);
    if (phase_ == Phase::Open) PostMessageW(window_, WM_CLOSE, 0, 0);
  }

 private:
  enum class Phase {
    Closed,   // no window; a thread that is recorded has left its loop
    Opening,  // a thread is making the window
    Open,     // the window is published
    Closing,  // the window is gone; its thread ends, or makes another one
  };

  // A dialog can't wait for its own end.
  void EndIfOnItsThread() const VD_REQUIRES(mutex_) {
    if (thread_.get_id() == std::this_thread::get_id()) std::terminate();
  }

  void Enter(Phase phase, HWND window) {
    MutexLock lock(mutex_);
    if (phase == Phase::Opening) wanted_ = false;
    phase_ = phase;
    window_ = window;
    changed_.NotifyAll();
  }

  void OnRaised() {
    MutexLock lock(mutex_);
    wanted_ = false;
  }

  // Somebody asked for the window while it was about to close: it would be lost on the one that
  // went.
  bool AnotherIsWanted() {
    MutexLock lock(mutex_);
    if (!wanted_) phase_ = Phase::Closed;
    changed_.NotifyAll();
    return phase_ != Phase::Closed;
  }

  // False if the system refuses a window.
  bool ServeOne() {
    bool served = false;
    RunGuarded(kSetupLog, "setup dialog", [&] {
      SetupDialog dialog(SharedTransport::Get(),
                         {.onRaised = [this] { OnRaised(); },
                          .onDestroyed = [this] { Enter(Phase::Closing, nullptr); }});
      const HWND window = dialog.Make();
      if (window == nullptr) return;
      // Before it appears, which takes the foreground from windows whose thread may wait in Show.
      Enter(Phase::Open, window);
      dialog.Appear();
      RunMessageLoop(window);
      served = true;
    });
    return served;
  }

  void Run() {
    const ComApartment apartment;
    InitControls();
    bool served = false;
    do {
      Enter(Phase::Opening, nullptr);
      served = ServeOne();
    } while (served && AnotherIsWanted());
    if (!served) Enter(Phase::Closed, nullptr);
  }

  Mutex mutex_;
  CondVar changed_;
  Phase phase_ VD_GUARDED_BY(mutex_) = Phase::Closed;
  HWND window_ VD_GUARDED_BY(mutex_) = nullptr;
  bool wanted_ VD_GUARDED_BY(mutex_) = false;  // by a Show that no window has heard yet
  std::thread thread_ VD_GUARDED_BY(mutex_);
};

}  // namespace

void ShowSetupDialog() { SetupDialogOwner::Get().Show(); }

void CloseSetupDialog() { SetupDialogOwner::Get().Close(); }

}  // namespace Veldrift
