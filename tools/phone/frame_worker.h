// A thread that works through whole frames in their order, so that receiving never waits for it.
//
// Threads: Push from any thread; Start and Finish from the owner's. The work runs on the worker's
// own thread and needs no lock against itself.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <thread>

#include "platform/mutex.h"
#include "tools/receiver/whole_frame.h"

namespace Veldrift {

class FrameWorker {
 public:
  using Work = std::function<void(const SharedFrame&)>;

  // `maxWaiting` frames may wait; what comes on top is left out, and counted.
  explicit FrameWorker(size_t maxWaiting) : maxWaiting_(maxWaiting) {}
  ~FrameWorker() { Finish(); }
  FrameWorker(const FrameWorker&) = delete;
  FrameWorker& operator=(const FrameWorker&) = delete;

  void Start(Work work);
  void Push(SharedFrame frame);

  // Works off what waits, then ends the thread.
  void Finish();

  size_t LeftOut() const;

 private:
  void Run();

  const size_t maxWaiting_;
  Work work_;
  mutable Mutex mutex_;
  CondVar changed_;
  std::deque<SharedFrame> waiting_ VD_GUARDED_BY(mutex_);
  bool finishing_ VD_GUARDED_BY(mutex_) = false;
  size_t leftOut_ VD_GUARDED_BY(mutex_) = 0;
  std::thread thread_;
};

}  // namespace Veldrift
