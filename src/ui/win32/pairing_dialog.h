// The pairing window on Windows: a top-most window on a thread of its own that shows the code until
// the handshake closes it or the user gives up. Keys do nothing in it but what the system itself
// does with them, so that somebody who types into the editor doesn't cancel the pairing.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "net/pairing_dialog.h"
#include "platform/mutex.h"
#include "platform/win32/windows_headers.h"

namespace Veldrift {

// Threads: the handshake's makes it, shows it and destroys it; Close comes from any. All that is
// done to the window but posting to it is done on the dialog's thread. The cancel callback runs
// there with no lock held, and may call Close. A window that can't be had is logged, and the
// handshake goes on without one.
class Win32PairingDialog : public IPairingDialog {
 public:
  Win32PairingDialog() = default;
  // Closes the window, without the callback, and waits for its thread; on that thread itself it
  // ends the process.
  ~Win32PairingDialog() override;
  Win32PairingDialog(const Win32PairingDialog&) = delete;
  Win32PairingDialog& operator=(const Win32PairingDialog&) = delete;

  void Show(const std::string& code, const std::string& peerName,
            std::function<void()> onCancel) override;
  void Close() override;

 private:
  void RunDialog(const std::string& code, const std::string& peerName);
  void TellOfCancel();

  std::thread thread_;
  std::atomic<HWND> windowHandle_{nullptr};  // while the loop serves it
  std::atomic<bool> closeRequested_{false};  // by the handshake, so that the callback stays out
  Mutex callbackMutex_;
  std::function<void()> onCancel_ VD_GUARDED_BY(callbackMutex_);
  std::atomic<bool> cancelFired_{false};
};

}  // namespace Veldrift
