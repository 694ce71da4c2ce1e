#include "platform/win32/native_locks.h"

#include "platform/win32/windows_headers.h"

#include <algorithm>

namespace Veldrift {
namespace {

// Both are one pointer, zero at first, and need no end.
static_assert(sizeof(SRWLOCK) == sizeof(void*));
static_assert(sizeof(CONDITION_VARIABLE) == sizeof(void*));

constexpr int64_t kNanosPerMilli = 1'000'000;

SRWLOCK* Slim(void*& lock) { return reinterpret_cast<SRWLOCK*>(&lock); }
CONDITION_VARIABLE* Condition(void*& condition) {
  return reinterpret_cast<CONDITION_VARIABLE*>(&condition);
}

}  // namespace

void NativeMutex::Lock() { AcquireSRWLockExclusive(Slim(lock_)); }
void NativeMutex::Unlock() { ReleaseSRWLockExclusive(Slim(lock_)); }

void NativeRecursiveMutex::Lock() {
  const uint32_t self = GetCurrentThreadId();
  if (owner_ != self) {
    mutex_.Lock();
    owner_ = self;
  }
  ++depth_;
}

void NativeRecursiveMutex::Unlock() {
  if (--depth_ > 0) return;
  owner_ = 0;
  mutex_.Unlock();
}

void NativeSharedMutex::Lock() { AcquireSRWLockExclusive(Slim(lock_)); }
void NativeSharedMutex::Unlock() { ReleaseSRWLockExclusive(Slim(lock_)); }
void NativeSharedMutex::LockShared() { AcquireSRWLockShared(Slim(lock_)); }
void NativeSharedMutex::UnlockShared() { ReleaseSRWLockShared(Slim(lock_)); }

void NativeCondition::Wait(NativeMutex& held) {
  SleepConditionVariableSRW(Condition(condition_), Slim(held.lock_), INFINITE, 0);
}

void NativeCondition::WaitFor(NativeMutex& held, int64_t nanos) {
  const int64_t millis = (std::max<int64_t>(nanos, 0) + kNanosPerMilli - 1) / kNanosPerMilli;
  SleepConditionVariableSRW(Condition(condition_), Slim(held.lock_),
                            static_cast<DWORD>(std::min<int64_t>(millis, INFINITE - 1)), 0);
}

void NativeCondition::NotifyOne() { WakeConditionVariable(Condition(condition_)); }
void NativeCondition::NotifyAll() { WakeAllConditionVariable(Condition(condition_)); }

}  // namespace Veldrift
