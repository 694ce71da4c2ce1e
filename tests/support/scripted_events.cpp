#include "tests/support/scripted_events.h"

#include <utility>

namespace Veldrift {

EventThreads::EventThreads() {
  for (int i = 0; i < 3; ++i) {
    threads_.emplace_back([this] {
      for (;;) {
        std::function<void()> work;
        {
          MutexLock lock(mutex_);
          while (work_.empty() && !ended_) changed_.Wait(lock);
          if (work_.empty()) return;
          work = std::move(work_.front());
          work_.pop_front();
        }
        work();
      }
    });
  }
}

EventThreads::~EventThreads() {
  {
    MutexLock lock(mutex_);
    ended_ = true;
    changed_.NotifyAll();
  }
  for (std::thread& thread : threads_) thread.join();
}

void EventThreads::Run(std::function<void()> work) {
  MutexLock lock(mutex_);
  work_.push_back(std::move(work));
  changed_.NotifyOne();
}

namespace {

struct Event final : TransformEvent {
  Event(uint32_t eventType, int32_t readError) : type(eventType), error(readError) {}
  int32_t Read(uint32_t& out) override {
    out = type;
    return error;
  }
  const uint32_t type;
  const int32_t error;
};

}  // namespace

void EventChannel::Request(std::shared_ptr<TransformEventListener> listener) {
  MutexLock lock(mutex_);
  listener_ = std::move(listener);
  if (threads_ && !events_.empty()) {
    threads_->Run([self = shared_from_this()] { self->TellNext(); });
  }
}

void EventChannel::Post(uint32_t type) {
  MutexLock lock(mutex_);
  events_.push_back(type);
  if (threads_ && listener_) threads_->Run([self = shared_from_this()] { self->TellNext(); });
}

void EventChannel::TellNext() {
  std::shared_ptr<TransformEventListener> listener;
  uint32_t type = 0;
  {
    MutexLock lock(mutex_);
    if (!listener_ || events_.empty()) return;
    listener = std::exchange(listener_, nullptr);
    type = events_.front();
    events_.pop_front();
  }
  Event event(type, 0);
  listener->OnEvent(event);
}

bool EventChannel::Send(uint32_t type, int32_t readError) {
  std::shared_ptr<TransformEventListener> listener;
  {
    MutexLock lock(mutex_);
    listener = std::exchange(listener_, nullptr);
  }
  if (!listener) return false;
  Event event(type, readError);
  listener->OnEvent(event);
  return true;
}

}  // namespace Veldrift
