#include "tests/support/scripted_backend.h"

#include <deque>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

#include "encoder/encoder_shell.h"
#include "encoder/unit_assembler.h"

namespace Veldrift {

void BackendScript::Change(const std::function<void(Behaviour&)>& change) {
  MutexLock lock(mutex_);
  change(behaviour_);
}

BackendScript::Behaviour BackendScript::Now() const {
  MutexLock lock(mutex_);
  return behaviour_;
}

void BackendScript::Record(const std::string& call) {
  MutexLock lock(mutex_);
  calls_.push_back(call);
}

std::vector<std::string> BackendScript::TakeCalls() {
  MutexLock lock(mutex_);
  return std::exchange(calls_, {});
}

void BackendScript::RecordPlan(const EncoderPlan& plan) {
  MutexLock lock(mutex_);
  plan_ = plan;
}

EncoderPlan BackendScript::LastPlan() const {
  MutexLock lock(mutex_);
  return plan_;
}

namespace {

using Bytes = std::vector<uint8_t>;

const Bytes kAvcSets = {0, 0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x68, 1};
const Bytes kHevcSets = {0, 0, 0, 1, 0x40, 1, 0, 0, 0, 1, 0x42, 1, 0, 0, 0, 1, 0x44, 1};

// The stream that is open: what units are made with.
struct Stream {
  Stream(int32_t codecId, std::shared_ptr<OutputPort> outputPort)
      : codec(codecId), port(std::move(outputPort)), assembler(codecId) {
    assembler.ReadHeader(codec == kCodecH264 ? kAvcSets : kHevcSets);
  }
  void Post(const FrameOrder& order) {
    const uint8_t key = codec == kCodecH264 ? 0x65 : 0x26;
    const uint8_t plain = codec == kCodecH264 ? 0x41 : 0x02;
    EncodedUnit unit = port->Blank();
    assembler.Assemble(Bytes{0, 0, 0, 1, order.keyFrame ? key : plain, 7}, order.keyFrame, unit);
    unit.timestamp = order.timestamp;
    port->Post(std::move(unit));
  }

  const int32_t codec;
  const std::shared_ptr<OutputPort> port;
  UnitAssembler assembler;
};

// Posts and emits on a thread of its own. Ending a stream waits until what was submitted is posted,
// and not for its emission: the thread outlives the stream.
class Worker {
 public:
  Worker() : thread_([this] { Run(); }) {}
  ~Worker() {
    {
      MutexLock lock(mutex_);
      ended_ = true;
      changed_.NotifyAll();
    }
    thread_.join();
  }
  void Give(std::shared_ptr<Stream> stream, const FrameOrder& order) {
    MutexLock lock(mutex_);
    work_.push_back({std::move(stream), order});
    changed_.NotifyAll();
  }
  void AwaitPosted() {
    MutexLock lock(mutex_);
    while (!work_.empty()) changed_.Wait(lock);
  }

 private:
  struct Work {
    std::shared_ptr<Stream> stream;
    FrameOrder order;
  };

  std::shared_ptr<OutputPort> PostNext() {
    MutexLock lock(mutex_);
    while (work_.empty() && !ended_) changed_.Wait(lock);
    if (work_.empty()) return nullptr;
    const Work next = work_.front();
    next.stream->Post(next.order);
    work_.pop_front();
    changed_.NotifyAll();
    return next.stream->port;
  }
  void Run() {
    while (const std::shared_ptr<OutputPort> port = PostNext()) port->Emit();
  }

  Mutex mutex_;
  CondVar changed_;
  std::deque<Work> work_ VD_GUARDED_BY(mutex_);
  bool ended_ VD_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

class ScriptedBackend final : public EncoderBackend {
 public:
  explicit ScriptedBackend(std::shared_ptr<BackendScript> script) : script_(std::move(script)) {
    if (script_->Now().asynchronous) worker_.emplace();
  }

  bool Open(const EncoderPlan& plan, const std::shared_ptr<OutputPort>& port,
            OpenedEncoder& opened) override {
    script_->Record("Open " + std::to_string(plan.width) + "x" + std::to_string(plan.height));
    script_->RecordPlan(plan);
    const BackendScript::Behaviour now = script_->Now();
    if (now.throwInOpen) throw std::runtime_error("open");
    if (now.failOpen) return false;
    stream_ = std::make_shared<Stream>(plan.codec, port);
    opened.name = "scripted";
    opened.bitrate = std::min(plan.bitrate, now.mostBitrate);
    opened.asynchronous = now.asynchronous;
    opened.parameterSetBytes = stream_->assembler.ParameterSetBytes();
    return true;
  }
  void Close() override {
    if (!stream_) return;
    script_->Record("Close");
    if (worker_) worker_->AwaitPosted();
    if (script_->Now().unitAtClose) stream_->Post({99, false, false});
    stream_.reset();
  }
  Intake TakeIn(FrameInput& frame, bool emergency) override {
    const BgraPicture picture = frame.Picture();
    script_->Record("TakeIn " + std::to_string(picture.width) + "x" +
                    std::to_string(picture.height) + (emergency ? " emergency" : ""));
    if (script_->Now().throwInTakeIn) throw std::runtime_error("take in");
    return script_->Now().intake;
  }
  bool Submit(const FrameOrder& order) override {
    script_->Record(std::string("Submit") + (order.keyFrame ? " key" : "") +
                    (order.emergency ? " emergency" : ""));
    if (script_->Now().throwInSubmit) throw std::runtime_error("submit");
    if (script_->Now().failSubmit) return false;
    if (worker_) {
      worker_->Give(stream_, order);
    } else {
      stream_->Post(order);
    }
    return true;
  }
  bool TakesChanges() const override { return script_->Now().takesChanges; }
  int32_t SetMeanRate(uint32_t bitsPerSecond) override {
    script_->Record("SetMeanRate " + std::to_string(bitsPerSecond));
    return script_->Now().rateError;
  }
  int32_t SetMaxRate(uint32_t bitsPerSecond) override {
    script_->Record("SetMaxRate " + std::to_string(bitsPerSecond));
    return script_->Now().rateError;
  }
  void SetQuality(float quality) override {
    script_->Record("SetQuality " + std::to_string(int(quality * 1000.0F + 0.5F)));
  }

 private:
  const std::shared_ptr<BackendScript> script_;
  std::shared_ptr<Stream> stream_;
  std::optional<Worker> worker_;
};

}  // namespace

std::unique_ptr<EncoderBackend> MakeScriptedBackend(std::shared_ptr<BackendScript> script) {
  return std::make_unique<ScriptedBackend>(std::move(script));
}

std::unique_ptr<IHardwareEncoder> MakeScriptedShell(std::shared_ptr<BackendScript> script) {
  return std::make_unique<EncoderShell>([script] { return MakeScriptedBackend(script); }, "auto");
}

}  // namespace Veldrift
