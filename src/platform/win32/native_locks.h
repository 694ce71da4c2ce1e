// The locks behind platform/mutex.h: the system's slim ones, which own nothing. The compiler's
// runtime makes kernel objects for the standard library's locks and never gives them back.
#pragma once

#include <atomic>
#include <cstdint>

namespace Veldrift {

class NativeMutex {
 public:
  void Lock();
  void Unlock();

 private:
  friend class NativeCondition;
  void* lock_ = nullptr;  // an SRWLOCK
};

class NativeRecursiveMutex {
 public:
  void Lock();
  void Unlock();

 private:
  NativeMutex mutex_;
  std::atomic<uint32_t> owner_{0};  // the thread's number
  int depth_ = 0;                   // the owner's
};

class NativeSharedMutex {
 public:
  void Lock();
  void Unlock();
  void LockShared();
  void UnlockShared();

 private:
  void* lock_ = nullptr;  // an SRWLOCK
};

class NativeCondition {
 public:
  void Wait(NativeMutex& held);
  // To the next whole millisecond.
  void WaitFor(NativeMutex& held, int64_t nanos);
  void NotifyOne();
  void NotifyAll();

 private:
  void* condition_ = nullptr;  // a CONDITION_VARIABLE
};

}  // namespace Veldrift
