#include "tests/support/scripted_transform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

#include "encoder/encoder_shell.h"
#include "encoder/hardware_encoder.h"

namespace Veldrift {

void TransformScript::Change(const std::function<void(Behaviour&)>& change) {
  MutexLock lock(mutex_);
  change(behaviour_);
}

TransformScript::Behaviour TransformScript::Now() const {
  MutexLock lock(mutex_);
  return behaviour_;
}

namespace {

template <typename T>
std::optional<T> TakeFirst(std::deque<T>& queue) {
  if (queue.empty()) return std::nullopt;
  const T first = queue.front();
  queue.pop_front();
  return first;
}

}  // namespace

std::optional<int32_t> TransformScript::NextInput() {
  MutexLock lock(mutex_);
  return TakeFirst(behaviour_.inputs);
}

std::optional<EncoderTransform::Output> TransformScript::NextOutput() {
  MutexLock lock(mutex_);
  return TakeFirst(behaviour_.outputs);
}

void TransformScript::Record(const std::string& call) {
  MutexLock lock(mutex_);
  calls_.push_back(call);
}

std::vector<std::string> TransformScript::TakeCalls(const std::vector<std::string>& words) {
  MutexLock lock(mutex_);
  std::vector<std::string> calls = std::exchange(calls_, {});
  if (words.empty()) return calls;
  std::erase_if(calls, [&](const std::string& call) {
    return std::ranges::none_of(words, [&](const std::string& w) { return call.starts_with(w); });
  });
  return calls;
}

std::shared_ptr<EventChannel> TransformScript::OpenChannel(bool sendsEvents) {
  MutexLock lock(mutex_);
  if (sendsEvents && !threads_) threads_ = std::make_unique<EventThreads>();
  channel_ = std::make_shared<EventChannel>(sendsEvents ? threads_.get() : nullptr);
  return channel_;
}

bool TransformScript::Send(uint32_t type, int32_t readError) {
  std::shared_ptr<EventChannel> channel;
  {
    MutexLock lock(mutex_);
    channel = channel_;
  }
  return channel && channel->Send(type, readError);
}

namespace {

using Bytes = std::vector<uint8_t>;
using Answer = EncoderTransform::Output::Answer;

const Bytes kAvcSets = {0, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x68, 1};
const Bytes kHevcSets = {0, 0, 0, 1, 0x40, 1, 0, 0, 0, 1, 0x42, 1, 0, 0, 0, 1, 0x44, 1};

const char* NameOf(CodecProperty property) {
  constexpr const char* kNames[] = {"LowLatency",    "RealTime", "RateControlMode", "MeanBitRate",
                                    "MaxBitRate",    "Quality",  "GopSize",         "BPictureCount",
                                    "ForceKeyFrame", "EncodeQp"};
  return kNames[static_cast<int>(property)];
}

const char* NameOf(TransformMessage message) {
  constexpr const char* kNames[] = {"Flush",         "Drain",       "BeginStreaming",
                                    "StartOfStream", "EndOfStream", "EndStreaming"};
  return kNames[static_cast<int>(message)];
}

class ScriptedSample final : public TransformSample {
 public:
  ScriptedSample(std::shared_ptr<TransformScript> script, size_t bytes)
      : script_(std::move(script)), memory_(bytes) {}

  uint8_t* Lock(int32_t& error) override {
    error = script_->Now().lock;
    return error < 0 ? nullptr : memory_.data();
  }
  void Unlock(size_t length) override { script_->Record("Filled " + std::to_string(length)); }
  void SetTimes(int64_t time, int64_t duration) override {
    time_ = time;
    script_->Record("SetTimes " + std::to_string(time) + "+" + std::to_string(duration));
  }
  void MarkKeyFrame() override { script_->Record("MarkKeyFrame"); }
  void ClearMark() override { script_->Record("ClearMark"); }
  int64_t Time() const { return time_; }

 private:
  const std::shared_ptr<TransformScript> script_;
  Bytes memory_;
  int64_t time_ = 0;
};

class ScriptedTransform final : public EncoderTransform {
 public:
  ScriptedTransform(std::shared_ptr<TransformScript> script, ScriptedTransformTraits traits)
      : script_(std::move(script)), traits_(std::move(traits)) {}
  ~ScriptedTransform() override { script_->Record("Release " + traits_.name); }

  bool IsAsynchronous() override { return traits_.asynchronous; }
  int32_t UnlockAsynchronous(int32_t& readError) override {
    script_->Record("Unlock");
    readError = traits_.readAttributes;
    return traits_.unlock;
  }
  std::optional<int32_t> OfferDevice() override {
    if (!script_->Now().device) return std::nullopt;
    script_->Record("OfferDevice");
    return traits_.takeDevice;
  }
  int32_t SetOutputType(const TransformFormat& format) override {
    codec_ = format.codec;
    script_->Record("SetOutputType " + std::to_string(format.codec) + " " +
                    std::to_string(format.width) + "x" + std::to_string(format.height) + "@" +
                    std::to_string(format.fps) + " " + std::to_string(format.bitrate));
    return traits_.outputType;
  }
  InputOffer OfferedInput(uint32_t index) override {
    return index < traits_.offers.size() ? traits_.offers[index] : InputOffer::NoMore;
  }
  int32_t SetInputType(const TransformFormat& format, std::optional<uint32_t> offered) override {
    script_->Record("SetInputType " + std::to_string(format.width) + "x" +
                    std::to_string(format.height) + " " +
                    (offered ? std::to_string(*offered) : std::string("plain")));
    return traits_.inputType;
  }
  bool IsD3d11Aware() override { return traits_.d3d11Aware; }

  bool HasProperties() override { return traits_.properties; }
  int32_t SetProperty(CodecProperty property, uint32_t value) override {
    if (!traits_.properties) return transform_error::kFail;
    script_->Record(std::string(NameOf(property)) + " " + std::to_string(value));
    if (property == CodecProperty::ForceKeyFrame) forced_ = true;
    return script_->Now().setProperty;
  }
  Bytes SequenceHeader() override {
    script_->Record("SequenceHeader");
    const Bytes header = script_->Now().header;
    if (!header.empty()) return header;
    return codec_ == kCodecH264 ? kAvcSets : kHevcSets;
  }

  int32_t SendMessage(TransformMessage message) override {
    script_->Record(NameOf(message));
    if (message == TransformMessage::Drain) return BeginDrain();
    if (message == TransformMessage::StartOfStream && events_) {
      if (traits_.wantsDuringStart) {
        std::thread([this] { EXPECT_TRUE(events_->Send(kEventNeedInput, 0)); }).join();
      }
      for (int i = 0; i < traits_.wants; ++i) events_->Post(kEventNeedInput);
    }
    return 0;
  }
  int32_t ProcessInput(TransformSample& sample) override {
    const int64_t time = static_cast<ScriptedSample&>(sample).Time();
    const int32_t answer = script_->NextInput().value_or(0);
    script_->Record("ProcessInput " + std::to_string(time));
    if (answer < 0) return answer;
    const TransformScript::Behaviour now = script_->Now();
    if (now.onInput) now.onInput();
    MutexLock lock(mutex_);
    if (held_.size() >= now.capacity) return transform_error::kNotAccepting;
    held_.push_back({time, forced_.exchange(false)});
    if (events_) {
      if (held_.size() > now.delay) events_->Post(kEventHaveOutput);
      events_->Post(kEventNeedInput);
    }
    return answer;
  }
  Output TakeOutput(TransformOutputSink& sink) override {
    if (const std::optional<Output> scripted = script_->NextOutput()) return *scripted;
    const TransformScript::Behaviour now = script_->Now();
    const std::optional<Held> held = TakeHeld(now.delay);
    if (!held) return {Answer::NeedMoreInput, transform_error::kNeedMoreInput};
    const uint8_t key = codec_ == kCodecH264 ? 0x65 : 0x26;
    const uint8_t plain = codec_ == kCodecH264 ? 0x21 : 0x02;
    const Bytes unit = {0, 0, 0, 1, held->keyFrame ? key : plain, 7};
    sink.OnOutput(
        unit, held->keyFrame,
        now.timedOutput ? std::optional<int64_t>(held->time + now.timeOff) : std::nullopt);
    return {Answer::Taken, 0};
  }
  StreamChange AcceptStreamChange() override {
    script_->Record("AcceptStreamChange");
    return script_->Now().change;
  }

  int32_t OpenEvents() override {
    script_->Record("OpenEvents");
    if (traits_.openEvents < 0) return traits_.openEvents;
    events_ = script_->OpenChannel(traits_.sendsEvents);
    return 0;
  }
  int32_t RequestEvent(const std::shared_ptr<TransformEventListener>& listener) override {
    if (traits_.requestEvent < 0) return traits_.requestEvent;
    events_->Request(listener);
    return 0;
  }
  void CloseEvents() override { script_->Record("CloseEvents"); }

 private:
  struct Held {
    int64_t time;
    bool keyFrame;
  };

  std::optional<Held> TakeHeld(size_t delay) {
    MutexLock lock(mutex_);
    if (held_.size() <= (draining_ ? 0 : delay)) return std::nullopt;
    return TakeFirst(held_);
  }

  int32_t BeginDrain() {
    const int32_t answer = script_->Now().drain;
    if (answer < 0 || !events_) return answer;
    MutexLock lock(mutex_);
    draining_ = true;
    for (size_t i = 0; i < held_.size(); ++i) events_->Post(kEventHaveOutput);
    if (traits_.answersDrain) events_->Post(kEventDrainComplete);
    return answer;
  }

  const std::shared_ptr<TransformScript> script_;
  const ScriptedTransformTraits traits_;
  int32_t codec_ = 0;
  std::atomic<bool> forced_{false};
  Mutex mutex_;
  bool draining_ VD_GUARDED_BY(mutex_) = false;
  std::deque<Held> held_ VD_GUARDED_BY(mutex_);
  std::shared_ptr<EventChannel> events_;
};

class ScriptedCandidate final : public TransformCandidate {
 public:
  ScriptedCandidate(std::shared_ptr<TransformScript> script, ScriptedTransformTraits traits)
      : script_(std::move(script)), traits_(std::move(traits)) {}
  std::string Name() override { return traits_.name; }
  std::string Vendor() override { return traits_.vendor; }
  std::unique_ptr<EncoderTransform> Activate(int32_t& error) override {
    script_->Record("Activate " + traits_.name);
    error = traits_.activate;
    if (error < 0) return nullptr;
    return std::make_unique<ScriptedTransform>(script_, traits_);
  }

 private:
  const std::shared_ptr<TransformScript> script_;
  const ScriptedTransformTraits traits_;
};

class ScriptedPlatform final : public TransformPlatform {
 public:
  explicit ScriptedPlatform(std::shared_ptr<TransformScript> script) : script_(std::move(script)) {}

  void OpenDevice(const std::string& engineId) override {
    script_->Record("OpenDevice " + engineId);
  }
  void CloseDevice() override {
    script_->Record("CloseDevice");
    resident_ = false;
  }
  void AwaitGpu() override { script_->Record("AwaitGpu"); }
  std::vector<std::unique_ptr<TransformCandidate>> Find(TransformClass kind, int32_t) override {
    std::vector<std::unique_ptr<TransformCandidate>> found;
    for (const ScriptedTransformTraits& traits : script_->Now().transforms) {
      if (std::ranges::find(traits.listedIn, kind) == traits.listedIn.end()) continue;
      found.push_back(std::make_unique<ScriptedCandidate>(script_, traits));
    }
    return found;
  }
  std::unique_ptr<TransformSample> MakeSample(size_t bytes, int32_t& error) override {
    error = script_->Now().makeSample;
    if (error < 0) return nullptr;
    return std::make_unique<ScriptedSample>(script_, bytes);
  }
  bool ConvertOnGpu(FrameInput&, uint8_t*, uint8_t*) override {
    const bool converts = script_->Now().gpuConverts;
    if (converts) script_->Record("ConvertOnGpu");
    return converts;
  }
  std::string SetUpResident(const ChosenTransform& chosen) override {
    script_->Record("SetUpResident " + chosen.name + (chosen.onGpu ? " onGpu" : "") +
                    (chosen.d3d11Aware ? " aware" : ""));
    resident_ = script_->Now().residentActive;
    return resident_ ? "ACTIVE" : "off";
  }
  bool ResidentActive() override { return resident_; }
  std::unique_ptr<TransformSample> ResidentSample(FrameInput&) override {
    if (script_->Now().residentEmpty) return nullptr;
    script_->Record("ResidentSample");
    return std::make_unique<ScriptedSample>(script_, 0);
  }
  void RefuseResident(int32_t error) override {
    script_->Record("RefuseResident " + std::to_string(error));
    resident_ = false;
  }

 private:
  const std::shared_ptr<TransformScript> script_;
  bool resident_ = false;
};

}  // namespace

std::unique_ptr<TransformPlatform> MakeScriptedPlatform(std::shared_ptr<TransformScript> script) {
  return std::make_unique<ScriptedPlatform>(std::move(script));
}

std::unique_ptr<IHardwareEncoder> MakeTransformEncoder(std::shared_ptr<TransformScript> script,
                                                       const std::string& engineId, Clock& clock) {
  const auto makeBackend = [script, &clock]() -> std::unique_ptr<EncoderBackend> {
    return std::make_unique<TransformBackend>(TransformBackend::Environment{
        MakeScriptedPlatform(script), [script] { return script->Now().allowAsynchronous; }, clock});
  };
  return std::make_unique<EncoderShell>(makeBackend, engineId);
}

}  // namespace Veldrift
