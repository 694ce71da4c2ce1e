// The locks behind platform/mutex.h: the standard library's.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <shared_mutex>

namespace Veldrift {

class NativeMutex {
 public:
  void Lock() { mutex_.lock(); }
  void Unlock() { mutex_.unlock(); }

 private:
  friend class NativeCondition;
  std::mutex mutex_;
};

class NativeRecursiveMutex {
 public:
  void Lock() { mutex_.lock(); }
  void Unlock() { mutex_.unlock(); }

 private:
  std::recursive_mutex mutex_;
};

class NativeSharedMutex {
 public:
  void Lock() { mutex_.lock(); }
  void Unlock() { mutex_.unlock(); }
  void LockShared() { mutex_.lock_shared(); }
  void UnlockShared() { mutex_.unlock_shared(); }

 private:
  std::shared_mutex mutex_;
};

class NativeCondition {
 public:
  void Wait(NativeMutex& held) {
    std::unique_lock lock(held.mutex_, std::adopt_lock);
    condition_.wait(lock);
    lock.release();
  }
  void WaitFor(NativeMutex& held, int64_t nanos) {
    std::unique_lock lock(held.mutex_, std::adopt_lock);
    condition_.wait_for(lock, std::chrono::nanoseconds(nanos));
    lock.release();
  }
  void NotifyOne() { condition_.notify_one(); }
  void NotifyAll() { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace Veldrift
