#include "encoder/async_driver.h"

#include <utility>

#include "encoder/hresult_name.h"
#include "encoder/log_limit.h"
#include "support/guarded.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

constexpr size_t kPoolSamples = 4;
constexpr size_t kMostWaiting = 2;
constexpr int64_t kDrainNanos = 2 * kNanosPerSecond;

LogLimit loggedEvents(32);
LogLimit loggedPushes(8);

const char* EventName(uint32_t type) {
  switch (type) {
    case kEventNeedInput:
      return "NeedInput";
    case kEventHaveOutput:
      return "HaveOutput";
    case kEventDrainComplete:
      return "DrainComplete";
    case kEventError:
      return "Error";
    default:
      return "other";
  }
}

}  // namespace

// What the platform holds: it can call when the driver is gone.
class AsyncDriver::Listener final : public TransformEventListener {
 public:
  explicit Listener(AsyncDriver& owner) : owner_(&owner) {}

  void OnEvent(TransformEvent& event) noexcept override {
    RunGuarded(kCategory, "an encoder's event", [&] {
      MutexLock lock(mutex_);
      if (owner_) owner_->Handle(event);
    });
  }

  // Waits for an event that is being handled; those behind it find nobody.
  void Detach() {
    MutexLock lock(mutex_);
    owner_ = nullptr;
  }

 private:
  Mutex mutex_;
  AsyncDriver* owner_ VD_GUARDED_BY(mutex_);
};

AsyncDriver::AsyncDriver(EncoderTransform& transform, TransformPlatform& platform,
                         std::shared_ptr<OutputPort> port, EmissionThread& emission, int32_t codec,
                         size_t frameBytes, Clock& clock)
    : transform_(transform),
      platform_(platform),
      emission_(emission),
      frameBytes_(frameBytes),
      clock_(clock),
      listener_(std::make_shared<Listener>(*this)),
      collector_(codec, std::move(port)) {
  MutexLock lock(queueMutex_);
  collector_.ReadHeader(transform_);
}

AsyncDriver::~AsyncDriver() { Stop(); }

size_t AsyncDriver::ParameterSetBytes() {
  MutexLock lock(queueMutex_);
  return collector_.ParameterSetBytes();
}

// ---- Start ----

// Events can come before the messages have returned: all that handles them stands by now.
bool AsyncDriver::Start() {
  if (const int32_t error = transform_.OpenEvents(); error < 0) {
    PluginLog(kCategory, kLogError, "async: MFT does not expose IMFMediaEventGenerator (%s)",
              HresultName(error).c_str());
    return false;
  }
  PluginLog(kCategory, kLogInfo, "async: event generator acquired");
  running_ = true;
  if (!Arm()) {
    Stop();
    return false;
  }
  PluginLog(kCategory, kLogInfo, "async: NOTIFY_BEGIN_STREAMING %s",
            HresultName(transform_.SendMessage(TransformMessage::BeginStreaming)).c_str());
  PluginLog(kCategory, kLogInfo, "async: NOTIFY_START_OF_STREAM %s",
            HresultName(transform_.SendMessage(TransformMessage::StartOfStream)).c_str());
  BuildPool();
  return true;
}

bool AsyncDriver::Arm() {
  if (const int32_t error = transform_.RequestEvent(listener_); error < 0) {
    PluginLog(kCategory, kLogError, "async: BeginGetEvent failed %s", HresultName(error).c_str());
    return false;
  }
  PluginLog(kCategory, kLogInfo, "async: BeginGetEvent armed");
  return true;
}

// The memory of the frames that can be under way at once, held for as long as the stream lasts.
void AsyncDriver::BuildPool() {
  int32_t error = 0;
  while (pool_.size() < kPoolSamples) {
    Sample sample = platform_.MakeSample(frameBytes_, error);
    if (!sample) break;
    pool_.push_back(std::move(sample));
  }
  PluginLog(kCategory, kLogInfo, "async: input-sample pool built (%zu entries × %zu bytes)",
            pool_.size(), frameBytes_);
}

// ---- Frames ----

// The transform may hold on to a sample for as long as it likes: each frame has one of its own.
TransformDriver::Sample AsyncDriver::MemorySample(int32_t& error) {
  return platform_.MakeSample(frameBytes_, error);
}

int32_t AsyncDriver::Put(const Sample& sample, int64_t time, uint64_t given) {
  int32_t answer = 0;
  const char* state = "queued";
  size_t waiting = 0;
  int32_t slots = 0;
  {
    MutexLock lock(queueMutex_);
    if (needSlots_ < 1) {
      while (queue_.size() >= kMostWaiting) queue_.pop_front();
      queue_.push_back({sample, time, given});
    } else {
      --needSlots_;
      state = "SUBMITTED";
      answer = Submit({sample, time, given});
    }
    waiting = queue_.size();
    slots = needSlots_;
  }
  if (answer < 0) {
    PluginLog(kCategory, kLogError, "async: ProcessInput (from push) failed %s",
              HresultName(answer).c_str());
  }
  if (loggedPushes.Take()) {
    PluginLog(kCategory, kLogInfo, "async: push %s (queue=%zu needSlots=%d)", state, waiting,
              slots);
  }
  return answer;
}

// Only what goes in has its time noted: frames that are dropped here, however many while the
// transform stands still, don't push out those that are inside.
int32_t AsyncDriver::Submit(const Frame& frame) {
  collector_.NoteInput(frame.time, frame.given);
  return transform_.ProcessInput(*frame.sample);
}

// ---- Events ----

void AsyncDriver::Handle(TransformEvent& event) {
  if (shuttingDown_) return;
  // Whatever happens to this one, the next is asked for.
  RunGuarded(kCategory, "an encoder's event", [&] { ReadAndDispatch(event); });
  if (!shuttingDown_) transform_.RequestEvent(listener_);
}

void AsyncDriver::ReadAndDispatch(TransformEvent& event) {
  uint32_t type = 0;
  if (const int32_t error = event.Read(type); error < 0) {
    PluginLog(kCategory, kLogInfo, "async: EndGetEvent failed %s", HresultName(error).c_str());
    return;
  }
  if (loggedEvents.Take()) {
    PluginLog(kCategory, kLogInfo, "async: event %s (0x%x)", EventName(type), type);
  }
  Dispatch(type);
}

void AsyncDriver::Dispatch(uint32_t type) {
  switch (type) {
    case kEventNeedInput:
      return OnNeedInput();
    case kEventHaveOutput:
      return OnHaveOutput();
    case kEventDrainComplete:
      return OnDrainComplete();
    default:
      return;
  }
}

void AsyncDriver::OnNeedInput() {
  int32_t answer = 0;
  {
    MutexLock lock(queueMutex_);
    if (queue_.empty()) {
      ++needSlots_;
      return;
    }
    const Frame frame = std::move(queue_.front());
    queue_.pop_front();
    answer = Submit(frame);
  }
  if (answer < 0) {
    refusal_ = answer;
    PluginLog(kCategory, kLogError, "async: ProcessInput (queued) failed %s",
              HresultName(answer).c_str());
  }
}

// One try an event: a transform that has changed its output announces it again.
void AsyncDriver::OnHaveOutput() {
  using Answer = EncoderTransform::Output::Answer;
  MutexLock lock(queueMutex_);
  const EncoderTransform::Output output = transform_.TakeOutput(collector_);
  if (output.answer == Answer::StreamChange) {
    transform_.AcceptStreamChange();
    collector_.ReadHeader(transform_);
  } else if (output.answer == Answer::Failed || output.answer == Answer::NeedMoreInput) {
    PluginLog(kCategory, kLogError, "async: ProcessOutput failed %s",
              HresultName(output.error).c_str());
  }
  emission_.Wake();
}

void AsyncDriver::OnDrainComplete() {
  MutexLock lock(drainMutex_);
  drainComplete_ = true;
  drained_.NotifyAll();
}

// ---- End ----

bool AsyncDriver::Drain() {
  if (!running_ || shuttingDown_) return true;
  {
    MutexLock lock(drainMutex_);
    drainComplete_ = false;
  }
  if (const int32_t error = transform_.SendMessage(TransformMessage::Drain); error < 0) {
    PluginLog(kCategory, kLogInfo, "async: DRAIN message failed %s — falling back to GPU-idle",
              HresultName(error).c_str());
    return false;
  }
  const bool complete = AwaitDrainComplete();
  PluginLog(kCategory, kLogInfo,
            complete ? "async: DRAIN complete — MFT consumed all queued input"
                     : "async: DRAIN wait timed out (2s) — proceeding to GPU-idle");
  return complete;
}

bool AsyncDriver::AwaitDrainComplete() {
  const int64_t deadline = clock_.NowNanos() + kDrainNanos;
  MutexLock lock(drainMutex_);
  while (!drainComplete_ && clock_.NowNanos() < deadline) {
    clock_.WaitUntil(drained_, lock, deadline);
  }
  return drainComplete_;
}

void AsyncDriver::Stop() {
  shuttingDown_ = true;
  listener_->Detach();
  if (std::exchange(running_, false)) transform_.CloseEvents();
  {
    MutexLock lock(queueMutex_);
    queue_.clear();
  }
  pool_.clear();
}

}  // namespace Veldrift
