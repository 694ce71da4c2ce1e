// A thread that does one job after the other: what an asynchronous encoder's hardware is.
#pragma once

#include <windows.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

namespace Veldrift::Transforms {

// Threads: any; none of these calls from inside a job.
class Worker {
 public:
  Worker();
  // Jobs that haven't begun are dropped.
  ~Worker();
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  void Add(std::function<void()> job);
  // Drops what hasn't begun and waits for what has.
  void Clear();

 private:
  static DWORD WINAPI Enter(void* self);
  void Run();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<std::function<void()>> jobs_;  // guarded by mutex_
  bool busy_ = false;                       // guarded by mutex_
  bool ending_ = false;                     // guarded by mutex_
  // A thread of Wine's: the jobs call Windows.
  const HANDLE thread_;
};

}  // namespace Veldrift::Transforms
