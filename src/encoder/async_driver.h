// Drives a transform that says by events when it wants a frame and when it has output.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "encoder/emission_thread.h"
#include "encoder/output_collector.h"
#include "encoder/transform_driver.h"
#include "encoder/transform_platform.h"
#include "platform/mutex.h"
#include "support/clock.h"

namespace Veldrift {

// A frame goes in when the transform has asked for one; until then at most two wait, and of more
// the oldest are dropped: a transform that falls behind loses frames, and the picture stays
// current.
//
// Threads: the platform's threads handle the events, one at a time; what comes out is posted, and
// emitted elsewhere, so that no event ever waits for the callback. All else as TransformDriver
// says. Stop waits for an event that is being handled. Locks: the listener's mutex (Stop against
// events), then queueMutex_ or drainMutex_.
class AsyncDriver final : public TransformDriver {
 public:
  // `emission` is woken for what was posted to `port`; both outlive the driver.
  AsyncDriver(EncoderTransform& transform, TransformPlatform& platform,
              std::shared_ptr<OutputPort> port, EmissionThread& emission, int32_t codec,
              size_t frameBytes, Clock& clock);
  ~AsyncDriver() override;

  bool Start() override;
  Sample MemorySample(int32_t& error) override;
  bool ReusesSamples() const override { return false; }
  int32_t Put(const Sample& sample, int64_t time, uint64_t given) override;
  int32_t TakeRefusal() override { return refusal_.exchange(0); }
  // At most 2 s.
  bool Drain() override;
  void Stop() override;
  size_t ParameterSetBytes() override;

 private:
  class Listener;
  struct Frame {
    Sample sample;
    int64_t time;
    uint64_t given;
  };

  bool Arm();
  void BuildPool();
  void Handle(TransformEvent& event);
  void ReadAndDispatch(TransformEvent& event);
  void Dispatch(uint32_t type);
  int32_t Submit(const Frame& frame) VD_REQUIRES(queueMutex_);
  void OnNeedInput();
  void OnHaveOutput();
  void OnDrainComplete();
  bool AwaitDrainComplete();

  EncoderTransform& transform_;
  TransformPlatform& platform_;
  EmissionThread& emission_;
  const size_t frameBytes_;
  Clock& clock_;
  const std::shared_ptr<Listener> listener_;
  std::vector<Sample> pool_;
  bool running_ = false;  // between Start and Stop
  std::atomic<int32_t> refusal_{0};
  std::atomic<bool> shuttingDown_{false};  // no event is asked for any more

  // All input to the transform and all output from it.
  Mutex queueMutex_;
  std::deque<Frame> queue_ VD_GUARDED_BY(queueMutex_);
  int32_t needSlots_ VD_GUARDED_BY(queueMutex_) = 0;  // frames asked for and not given yet
  OutputCollector collector_ VD_GUARDED_BY(queueMutex_);

  Mutex drainMutex_;
  CondVar drained_;
  bool drainComplete_ VD_GUARDED_BY(drainMutex_) = false;
};

}  // namespace Veldrift
