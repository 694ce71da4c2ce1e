// Locks with clang's thread-safety annotations: a member marked VD_GUARDED_BY(mutex) can only be
// touched while `mutex` is held, and the clang build checks it. What locks behind them is the
// system's: native_locks.h in posix/ and win32/.
#pragma once

#include <cstdint>

#ifdef _WIN32
#include "platform/win32/native_locks.h"
#else
#include "platform/posix/native_locks.h"
#endif

#if defined(__clang__)
#define VD_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VD_THREAD_ANNOTATION(x)
#endif

#define VD_CAPABILITY(x) VD_THREAD_ANNOTATION(capability(x))
#define VD_SCOPED_CAPABILITY VD_THREAD_ANNOTATION(scoped_lockable)
#define VD_GUARDED_BY(x) VD_THREAD_ANNOTATION(guarded_by(x))
#define VD_ACQUIRED_BEFORE(...) VD_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define VD_REQUIRES(...) VD_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define VD_EXCLUDES(...) VD_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define VD_ACQUIRE(...) VD_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define VD_ACQUIRE_SHARED(...) VD_THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define VD_RELEASE(...) VD_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define VD_RELEASE_GENERIC(...) VD_THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
#define VD_NO_THREAD_SAFETY_ANALYSIS VD_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace Veldrift {

class VD_CAPABILITY("mutex") Mutex {
 public:
  void Lock() VD_ACQUIRE() { native_.Lock(); }
  void Unlock() VD_RELEASE() { native_.Unlock(); }

 private:
  friend class CondVar;
  NativeMutex native_;
};

// Holds a Mutex for a scope; a CondVar can wait on it.
class VD_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) VD_ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
  ~MutexLock() VD_RELEASE() { mutex_.Unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  friend class CondVar;
  Mutex& mutex_;
};

class VD_CAPABILITY("mutex") RecursiveMutex {
 public:
  void Lock() VD_ACQUIRE() { native_.Lock(); }
  void Unlock() VD_RELEASE() { native_.Unlock(); }

 private:
  NativeRecursiveMutex native_;
};

class VD_SCOPED_CAPABILITY RecursiveMutexLock {
 public:
  explicit RecursiveMutexLock(RecursiveMutex& mutex) VD_ACQUIRE(mutex) : mutex_(mutex) {
    mutex_.Lock();
  }
  ~RecursiveMutexLock() VD_RELEASE() { mutex_.Unlock(); }
  RecursiveMutexLock(const RecursiveMutexLock&) = delete;
  RecursiveMutexLock& operator=(const RecursiveMutexLock&) = delete;

 private:
  RecursiveMutex& mutex_;
};

// A reader-writer lock.
class VD_CAPABILITY("mutex") SharedMutex {
 public:
  void Lock() VD_ACQUIRE() { native_.Lock(); }
  void Unlock() VD_RELEASE() { native_.Unlock(); }
  void LockShared() VD_ACQUIRE_SHARED() { native_.LockShared(); }
  void UnlockShared() VD_RELEASE_GENERIC() { native_.UnlockShared(); }

 private:
  NativeSharedMutex native_;
};

class VD_SCOPED_CAPABILITY ReaderLock {
 public:
  explicit ReaderLock(SharedMutex& mutex) VD_ACQUIRE_SHARED(mutex) : mutex_(mutex) {
    mutex_.LockShared();
  }
  ~ReaderLock() VD_RELEASE_GENERIC() { mutex_.UnlockShared(); }
  ReaderLock(const ReaderLock&) = delete;
  ReaderLock& operator=(const ReaderLock&) = delete;

 private:
  SharedMutex& mutex_;
};

class VD_SCOPED_CAPABILITY WriterLock {
 public:
  explicit WriterLock(SharedMutex& mutex) VD_ACQUIRE(mutex) : mutex_(mutex) { mutex_.Lock(); }
  ~WriterLock() VD_RELEASE() { mutex_.Unlock(); }
  WriterLock(const WriterLock&) = delete;
  WriterLock& operator=(const WriterLock&) = delete;

 private:
  SharedMutex& mutex_;
};

// A condition variable over Mutex. Waits can end early: test the condition in a loop. Timed waits
// belong to Clock::WaitUntil, so that tests move the time.
class CondVar {
 public:
  void Wait(MutexLock& lock) { condition_.Wait(lock.mutex_.native_); }
  void WaitFor(MutexLock& lock, int64_t nanos) { condition_.WaitFor(lock.mutex_.native_, nanos); }
  void NotifyOne() { condition_.NotifyOne(); }
  void NotifyAll() { condition_.NotifyAll(); }

 private:
  NativeCondition condition_;
};

}  // namespace Veldrift
