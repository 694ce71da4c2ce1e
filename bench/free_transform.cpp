#include "bench/free_transform.h"

#include <atomic>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/mutex.h"

namespace Veldrift {
namespace {

using Bytes = std::vector<uint8_t>;

const Bytes kSets = {0,    0,    0, 1, 0x67, 0x64, 0x2A, 0xAC, 0x2B, 0x40,
                     0x3C, 0x11, 0, 0, 0,    1,    0x68, 0xEE, 0x3C, 0xB0};

// What a unit consists of looks like noise, but for start codes, which a codec avoids.
Bytes UnitOf(size_t bytes, uint8_t header) {
  Bytes unit(bytes);
  std::mt19937 random(1);
  for (uint8_t& byte : unit) byte = uint8_t(random() % 255 + 1);
  const Bytes front = {0, 0, 0, 1, header};
  std::copy(front.begin(), front.end(), unit.begin());
  return unit;
}

struct Units {
  explicit Units(size_t bytes) : key(UnitOf(bytes, 0x65)), other(UnitOf(bytes, 0x41)) {}
  const Bytes key;
  const Bytes other;
};

class FreeSample final : public TransformSample {
 public:
  explicit FreeSample(size_t bytes) : memory_(std::make_unique_for_overwrite<uint8_t[]>(bytes)) {}
  uint8_t* Lock(int32_t& error) override {
    error = 0;
    return memory_.get();
  }
  void Unlock(size_t) override {}
  void SetTimes(int64_t time, int64_t) override { time_ = time; }
  void MarkKeyFrame() override {}
  void ClearMark() override {}
  int64_t Time() const { return time_; }

 private:
  const std::unique_ptr<uint8_t[]> memory_;
  int64_t time_ = 0;
};

struct FreeEvent final : TransformEvent {
  explicit FreeEvent(uint32_t eventType) : type(eventType) {}
  int32_t Read(uint32_t& out) override {
    out = type;
    return 0;
  }
  const uint32_t type;
};

// Tells events to whoever has asked for the next one, on a thread of its own.
class EventLine {
 public:
  EventLine() : thread_([this] { Run(); }) {}
  ~EventLine() {
    {
      MutexLock lock(mutex_);
      ended_ = true;
      changed_.NotifyAll();
    }
    thread_.join();
  }
  void Post(uint32_t type) {
    MutexLock lock(mutex_);
    events_.push_back(type);
    changed_.NotifyAll();
  }
  void Request(std::shared_ptr<TransformEventListener> listener) {
    MutexLock lock(mutex_);
    listener_ = std::move(listener);
    changed_.NotifyAll();
  }

 private:
  void Run() {
    for (;;) {
      std::shared_ptr<TransformEventListener> listener;
      uint32_t type = 0;
      {
        MutexLock lock(mutex_);
        while (!ended_ && (events_.empty() || !listener_)) changed_.Wait(lock);
        if (ended_) return;
        listener = std::exchange(listener_, nullptr);
        type = events_.front();
        events_.erase(events_.begin());
      }
      FreeEvent event(type);
      listener->OnEvent(event);
    }
  }

  Mutex mutex_;
  CondVar changed_;
  std::vector<uint32_t> events_ VD_GUARDED_BY(mutex_);
  std::shared_ptr<TransformEventListener> listener_ VD_GUARDED_BY(mutex_);
  bool ended_ VD_GUARDED_BY(mutex_) = false;
  std::thread thread_;  // the last: it uses all of these
};

class FreeTransform final : public EncoderTransform {
 public:
  FreeTransform(bool asynchronous, std::shared_ptr<const Units> units)
      : asynchronous_(asynchronous), units_(std::move(units)) {}

  bool IsAsynchronous() override { return asynchronous_; }
  int32_t UnlockAsynchronous(int32_t& readError) override { return readError = 0; }
  std::optional<int32_t> OfferDevice() override { return std::nullopt; }
  int32_t SetOutputType(const TransformFormat&) override { return 0; }
  InputOffer OfferedInput(uint32_t) override { return InputOffer::Nv12; }
  int32_t SetInputType(const TransformFormat&, std::optional<uint32_t>) override { return 0; }
  bool IsD3d11Aware() override { return false; }
  bool HasProperties() override { return true; }
  int32_t SetProperty(CodecProperty property, uint32_t) override {
    if (property == CodecProperty::ForceKeyFrame) forced_ = true;
    return 0;
  }
  std::vector<uint8_t> SequenceHeader() override { return kSets; }

  int32_t SendMessage(TransformMessage message) override {
    if (!events_) return 0;
    if (message == TransformMessage::StartOfStream) events_->Post(kEventNeedInput);
    if (message == TransformMessage::Drain) events_->Post(kEventDrainComplete);
    return 0;
  }
  // The next frame is asked for before the output is told of: whoever has the one can give the
  // other.
  int32_t ProcessInput(TransformSample& sample) override {
    time_ = static_cast<FreeSample&>(sample).Time();
    ++inside_;
    if (!events_) return 0;
    events_->Post(kEventNeedInput);
    events_->Post(kEventHaveOutput);
    return 0;
  }
  Output TakeOutput(TransformOutputSink& sink) override {
    if (inside_ == 0) return {Output::Answer::NeedMoreInput, transform_error::kNeedMoreInput};
    --inside_;
    const bool key = forced_.exchange(false);
    sink.OnOutput(key ? units_->key : units_->other, key, time_);
    return {Output::Answer::Taken, 0};
  }
  StreamChange AcceptStreamChange() override { return {}; }

  int32_t OpenEvents() override {
    events_.emplace();
    return 0;
  }
  int32_t RequestEvent(const std::shared_ptr<TransformEventListener>& listener) override {
    events_->Request(listener);
    return 0;
  }
  void CloseEvents() override {}

 private:
  const bool asynchronous_;
  const std::shared_ptr<const Units> units_;
  std::atomic<bool> forced_{false};
  std::atomic<int64_t> time_{0};
  std::atomic<int> inside_{0};
  std::optional<EventLine> events_;
};

class FreeCandidate final : public TransformCandidate {
 public:
  FreeCandidate(bool asynchronous, std::shared_ptr<const Units> units)
      : asynchronous_(asynchronous), units_(std::move(units)) {}
  std::string Name() override { return "free"; }
  std::string Vendor() override { return {}; }
  std::unique_ptr<EncoderTransform> Activate(int32_t& error) override {
    error = 0;
    return std::make_unique<FreeTransform>(asynchronous_, units_);
  }

 private:
  const bool asynchronous_;
  const std::shared_ptr<const Units> units_;
};

class FreePlatform final : public TransformPlatform {
 public:
  FreePlatform(bool asynchronous, std::shared_ptr<const Units> units)
      : asynchronous_(asynchronous), units_(std::move(units)) {}

  void OpenDevice(const std::string&) override {}
  void CloseDevice() override {}
  void AwaitGpu() override {}
  std::vector<std::unique_ptr<TransformCandidate>> Find(TransformClass kind, int32_t) override {
    const TransformClass own =
        asynchronous_ ? TransformClass::HardwareAsync : TransformClass::HardwareSync;
    std::vector<std::unique_ptr<TransformCandidate>> found;
    if (kind == own) found.push_back(std::make_unique<FreeCandidate>(asynchronous_, units_));
    return found;
  }
  std::unique_ptr<TransformSample> MakeSample(size_t bytes, int32_t& error) override {
    error = 0;
    return std::make_unique<FreeSample>(bytes);
  }
  bool ConvertOnGpu(FrameInput&, uint8_t*, uint8_t*) override { return false; }
  std::string SetUpResident(const ChosenTransform&) override { return "off"; }
  bool ResidentActive() override { return false; }
  std::unique_ptr<TransformSample> ResidentSample(FrameInput&) override { return nullptr; }
  void RefuseResident(int32_t) override {}

 private:
  const bool asynchronous_;
  const std::shared_ptr<const Units> units_;
};

}  // namespace

std::function<std::unique_ptr<TransformPlatform>()> FreePlatforms(bool asynchronous,
                                                                  size_t unitBytes) {
  return [asynchronous, units = std::make_shared<const Units>(unitBytes)] {
    return std::make_unique<FreePlatform>(asynchronous, units);
  };
}

}  // namespace Veldrift
