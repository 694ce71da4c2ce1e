// A place where threads wait for a test.
#pragma once

#include "platform/mutex.h"

namespace Veldrift {

// Holds back whoever passes while it is shut. Threads: any.
class Gate {
 public:
  void Shut() { Set(true); }
  void Open() { Set(false); }
  void Pass() {
    MutexLock lock(mutex_);
    ++waiting_;
    changed_.NotifyAll();
    while (shut_) changed_.Wait(lock);
    --waiting_;
  }
  void AwaitSomebody() {
    MutexLock lock(mutex_);
    while (waiting_ == 0) changed_.Wait(lock);
  }

 private:
  void Set(bool shut) {
    MutexLock lock(mutex_);
    shut_ = shut;
    changed_.NotifyAll();
  }

  Mutex mutex_;
  CondVar changed_;
  bool shut_ VD_GUARDED_BY(mutex_) = false;
  int waiting_ VD_GUARDED_BY(mutex_) = 0;
};

}  // namespace Veldrift
