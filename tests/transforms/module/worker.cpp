#include "tests/transforms/module/worker.h"

#include <utility>

namespace Veldrift::Transforms {

Worker::Worker() : thread_(CreateThread(nullptr, 0, &Worker::Enter, this, 0, nullptr)) {}

Worker::~Worker() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
    jobs_.clear();
  }
  changed_.notify_all();
  if (!thread_) return;
  WaitForSingleObject(thread_, INFINITE);
  CloseHandle(thread_);
}

void Worker::Add(std::function<void()> job) {
  const std::lock_guard lock(mutex_);
  jobs_.push_back(std::move(job));
  changed_.notify_all();
}

void Worker::Clear() {
  std::unique_lock lock(mutex_);
  jobs_.clear();
  changed_.wait(lock, [this] { return !busy_; });
}

DWORD Worker::Enter(void* self) {
  static_cast<Worker*>(self)->Run();
  return 0;
}

void Worker::Run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return ending_ || !jobs_.empty(); });
    if (ending_) return;
    const std::function<void()> job = std::move(jobs_.front());
    jobs_.pop_front();
    busy_ = true;
    lock.unlock();
    job();
    lock.lock();
    busy_ = false;
    changed_.notify_all();
  }
}

}  // namespace Veldrift::Transforms
