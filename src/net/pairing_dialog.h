// The handshake's view of a window that shows the pairing code. The windows stand above; a factory
// that answers null, or an empty one, is a valid, headless configuration.
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace Veldrift {

// The destructor closes the window.
class IPairingDialog {
 public:
  virtual ~IPairingDialog() = default;

  // Opens the window on a thread of its own and returns at once; once an object. `onCancel` is
  // called at most once, on that thread, when the user gives up.
  virtual void Show(const std::string& code, const std::string& peerName,
                    std::function<void()> onCancel) = 0;

  // From any thread, at any time, also twice.
  virtual void Close() = 0;
};

using PairingDialogFactory = std::function<std::unique_ptr<IPairingDialog>()>;

}  // namespace Veldrift
