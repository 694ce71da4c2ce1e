// The events of scripted transforms, on threads as a platform has them or on the test's own.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "encoder/encoder_transform.h"
#include "platform/mutex.h"

namespace Veldrift {

// The threads that events come on: several, as the platform's, so that one that stands in a
// callback holds nobody up.
class EventThreads {
 public:
  EventThreads();
  ~EventThreads();
  void Run(std::function<void()> work);

 private:
  Mutex mutex_;
  CondVar changed_;
  std::deque<std::function<void()>> work_ VD_GUARDED_BY(mutex_);
  bool ended_ VD_GUARDED_BY(mutex_) = false;
  std::vector<std::thread> threads_;
};

// The events of one transform: each is told to whoever asked for it, once.
class EventChannel : public std::enable_shared_from_this<EventChannel> {
 public:
  explicit EventChannel(EventThreads* threads) : threads_(threads) {}
  void Request(std::shared_ptr<TransformEventListener> listener);
  void Post(uint32_t type);
  // Tells of an event on this thread; false if nobody has asked.
  bool Send(uint32_t type, int32_t readError);

 private:
  void TellNext();

  EventThreads* const threads_;  // null: only Send tells
  Mutex mutex_;
  std::deque<uint32_t> events_ VD_GUARDED_BY(mutex_);
  std::shared_ptr<TransformEventListener> listener_ VD_GUARDED_BY(mutex_);
};

}  // namespace Veldrift
