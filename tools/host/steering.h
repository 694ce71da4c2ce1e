// The road from the phone's transport keys to the host's main thread, through the sibling module.
// The plug-in's thread waits until the main thread has done what was asked, as it does in a host
// whose interface belongs to its main thread: a module that holds a lock over the call, or waits
// for its reading thread from the main one, stands still.
//
// Threads: the main thread, but for the handler, which comes from any.
#pragma once

#include <deque>
#include <filesystem>
#include <functional>
#include <memory>

#include "platform/mutex.h"
#include "support/control_bridge.h"
#include "tools/platform/module_loader.h"

namespace Veldrift {

class Steering {
 public:
  static Steering& Instance();

  // Loads the sibling of `host` that lies beside `module`, once; it stays, since the plug-in keeps
  // its address. False: there is none, and the plug-in takes to the keyboard.
  bool LoadSibling(const std::filesystem::path& module, HostApplication host);

  // From here to Close, operations are taken; outside of it they are refused at once.
  void Open();
  void Close();

  // Waits up to `nanos` for operations, and carries out what has come.
  void Serve(int64_t nanos, const std::function<void(BridgeOperation)>& carryOut);

 private:
  struct Request {
    BridgeOperation operation;
    bool done = false;
  };

  Steering() = default;
  static int32_t Handle(int32_t operation);
  bool Ask(BridgeOperation operation);

  std::unique_ptr<LoadedModule> sibling_;
  Mutex mutex_;
  CondVar changed_;
  bool open_ VD_GUARDED_BY(mutex_) = false;
  std::deque<std::shared_ptr<Request>> waiting_ VD_GUARDED_BY(mutex_);
};

}  // namespace Veldrift
