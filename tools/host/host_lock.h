// A lock of the host's that both its clock callback and its call of slot 10 take. Waiting for it
// ends after a time, so that a module that can't live with that is judged and not waited for.
//
// Threads: any.
#pragma once

#include <cstdint>

#include "platform/mutex.h"
#include "support/clock.h"

namespace Veldrift {

class HostLock {
 public:
  // False: not within `patienceNs`.
  bool Take(int64_t patienceNs) {
    const int64_t deadline = SteadyNanos() + patienceNs;
    MutexLock lock(mutex_);
    ++waiting_;
    changed_.NotifyAll();
    while (taken_ && SteadyNanos() < deadline) SystemClock().WaitUntil(changed_, lock, deadline);
    --waiting_;
    if (taken_) return false;
    taken_ = true;
    return true;
  }

  void Give() {
    const MutexLock lock(mutex_);
    taken_ = false;
    changed_.NotifyAll();
  }

  // Until somebody waits for it, or the time is over.
  void AwaitSomebody(int64_t patienceNs) {
    const int64_t deadline = SteadyNanos() + patienceNs;
    MutexLock lock(mutex_);
    while (waiting_ == 0 && SteadyNanos() < deadline) {
      SystemClock().WaitUntil(changed_, lock, deadline);
    }
  }

 private:
  Mutex mutex_;
  CondVar changed_;
  bool taken_ VD_GUARDED_BY(mutex_) = false;
  int waiting_ VD_GUARDED_BY(mutex_) = 0;
};

}  // namespace Veldrift
