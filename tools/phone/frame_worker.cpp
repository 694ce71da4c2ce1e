#include "frame_worker.h"

#include <utility>

namespace Veldrift {

void FrameWorker::Start(Work work) {
  work_ = std::move(work);
  thread_ = std::thread([this] { Run(); });
}

void FrameWorker::Push(SharedFrame frame) {
  const MutexLock lock(mutex_);
  if (waiting_.size() >= maxWaiting_) {
    ++leftOut_;
    return;
  }
  waiting_.push_back(std::move(frame));
  changed_.NotifyOne();
}

void FrameWorker::Finish() {
  {
    const MutexLock lock(mutex_);
    finishing_ = true;
    changed_.NotifyOne();
  }
  if (thread_.joinable()) thread_.join();
}

size_t FrameWorker::LeftOut() const {
  const MutexLock lock(mutex_);
  return leftOut_;
}

void FrameWorker::Run() {
  while (true) {
    SharedFrame frame;
    {
      MutexLock lock(mutex_);
      while (waiting_.empty() && !finishing_) changed_.Wait(lock);
      if (waiting_.empty()) return;
      frame = std::move(waiting_.front());
      waiting_.pop_front();
    }
    work_(frame);
  }
}

}  // namespace Veldrift
