#include "encoder/transform_backend.h"

#include <utility>

#include "encoder/async_driver.h"
#include "encoder/codec_properties.h"
#include "encoder/hresult_name.h"
#include "encoder/rate_control_state.h"
#include "encoder/sync_driver.h"
#include "encoder/transform_search.h"
#include "support/guarded.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

constexpr int64_t kSampleUnitsPerSecond = 10'000'000;
constexpr int64_t kMostSoftwareHevcPixels = 6'000'000;

TransformFormat FormatOf(const EncoderPlan& plan) {
  return {plan.codec, plan.width, plan.height, plan.fps, plan.bitrate};
}

// Of the luma plane. The chroma plane behind it has half of that.
size_t LumaBytes(const EncoderPlan& plan) {
  return static_cast<size_t>(plan.width) * static_cast<size_t>(plan.height);
}
size_t FrameBytes(const EncoderPlan& plan) { return LumaBytes(plan) + LumaBytes(plan) / 2; }

}  // namespace

TransformBackend::TransformBackend(Environment environment)
    : platform_(std::move(environment.platform)),
      allowAsynchronous_(std::move(environment.allowAsynchronous)),
      clock_(environment.clock) {}

TransformBackend::~TransformBackend() {
  RunGuarded(kCategory, "an encoder's end", [this] { Close(); });
}

// ---- Opening and closing ----

bool TransformBackend::Open(const EncoderPlan& plan, const std::shared_ptr<OutputPort>& port,
                            OpenedEncoder& opened) {
  plan_ = plan;
  sampleTime_ = 0;
  sampleDuration_ = kSampleUnitsPerSecond / plan.fps;
  owesKeyFrame_ = false;
  TransformFound found;
  if (!OpenTransform(found)) {
    PluginLog(kCategory, kLogError,
              "No encoder MFT accepted our media types (codec=%s %dx%d@%d %u bps)",
              plan.codec != kCodecHevc ? "H264" : "HEVC", plan.width, plan.height, plan.fps,
              plan.bitrate);
    Close();
    return false;
  }
  Describe(found, opened);
  SetCodecProperties(*transform_, plan);
  MakeDriver(port);
  opened.parameterSetBytes = driver_->ParameterSetBytes();
  SetUpResident(found);
  if (driver_->Start()) return true;
  if (asynchronous_) {
    PluginLog(kCategory, kLogError, "Async MFT setup failed — releasing and falling back");
  }
  Close();
  return false;
}

bool TransformBackend::OpenTransform(TransformFound& found) {
  platform_->OpenDevice(plan_.engineId);
  found = FindTransform(*platform_, {FormatOf(plan_), plan_.engineId, allowAsynchronous_()});
  if (!found.transform) return false;
  if (RefusesSize(found)) {
    found.transform.reset();  // before the device, which it may hold
    return false;
  }
  transform_ = std::move(found.transform);
  asynchronous_ = found.asynchronous;
  return true;
}

bool TransformBackend::RefusesSize(const TransformFound& found) const {
  const int64_t pixels = int64_t{plan_.width} * plan_.height;
  if (found.onGpu || plan_.codec != kCodecHevc || pixels <= kMostSoftwareHevcPixels) return false;
  PluginLog(kCategory, kLogError,
            "Refusing %dx%d on SW HEVC MFT \"%s\" — above %.1f MPx cap (HW HEVC unavailable: async "
            "MFTs not yet supported)",
            plan_.width, plan_.height, found.name.c_str(),
            static_cast<double>(kMostSoftwareHevcPixels) / 1e6);
  return true;
}

void TransformBackend::Describe(const TransformFound& found, OpenedEncoder& opened) const {
  opened.name = found.name;
  opened.kind = found.asynchronous ? "HW-async" : found.onGpu ? "HW" : "SW";
  opened.bitrate = plan_.bitrate;
  opened.asynchronous = found.asynchronous;
}

void TransformBackend::MakeDriver(const std::shared_ptr<OutputPort>& port) {
  const size_t bytes = FrameBytes(plan_);
  if (asynchronous_) {
    if (!emission_) emission_ = std::make_unique<EmissionThread>(port);
    driver_ = std::make_unique<AsyncDriver>(*transform_, *platform_, port, *emission_, plan_.codec,
                                            bytes, clock_);
  } else {
    driver_ = std::make_unique<SyncDriver>(*transform_, *platform_, port, plan_.codec, bytes);
  }
}

void TransformBackend::SetUpResident(const TransformFound& found) {
  residentStatus_ = platform_->SetUpResident(
      {found.name, found.onGpu, transform_->IsD3d11Aware(), plan_.width, plan_.height});
  PluginLog(kCategory, kLogInfo, "[BigOne] GPU-resident status: %s", residentStatus_.c_str());
}

// The order matters: the platform's workers have stopped touching samples before anything that
// these use is released, and the device goes last.
void TransformBackend::Close() {
  sample_.reset();
  if (transform_) CloseTransform();
  platform_->AwaitGpu();
  platform_->CloseDevice();
  residentStatus_.clear();
}

void TransformBackend::CloseTransform() {
  if (driver_ && !driver_->Drain()) platform_->AwaitGpu();
  transform_->SendMessage(TransformMessage::Flush);
  platform_->AwaitGpu();
  if (driver_) driver_->Stop();
  transform_->SendMessage(TransformMessage::EndOfStream);
  transform_->SendMessage(TransformMessage::EndStreaming);
  driver_.reset();
  transform_.reset();
}

// ---- Frames ----

EncoderBackend::Intake TransformBackend::TakeIn(FrameInput& frame, bool) {
  if (!driver_) return Intake::Failed;
  takenInNanos_ = clock_.NowNanos();
  if (const int32_t refusal = driver_->TakeRefusal()) LeaveResident(refusal);
  resident_ = platform_->ResidentActive();
  sample_ = resident_ ? platform_->ResidentSample(frame) : ConvertedSample(frame);
  if (!sample_) return Intake::Dropped;
  return std::exchange(owesKeyFrame_, false) ? Intake::TakenNew : Intake::Taken;
}

TransformDriver::Sample TransformBackend::ConvertedSample(FrameInput& frame) {
  int32_t error = 0;
  TransformDriver::Sample sample = driver_->MemorySample(error);
  uint8_t* const luma = sample ? sample->Lock(error) : nullptr;
  if (!luma) {
    if (!asynchronous_) NoteLostBuffer(error);
    return nullptr;
  }
  uint8_t* const chroma = luma + LumaBytes(plan_);
  if (!platform_->ConvertOnGpu(frame, luma, chroma)) {
    frame.ConvertToNv12(luma, chroma, plan_.width, plan_.height);
  }
  sample->Unlock(FrameBytes(plan_));
  return sample;
}

void TransformBackend::NoteLostBuffer(int32_t error) {
  if (++lockFailures_ != 1) return;
  PluginLog(kCategory, kLogError,
            "MF buffer Lock failed hr=%s — frame dropped (encoder-side, not network; counter "
            "now=%u)",
            HresultName(error).c_str(), lockFailures_);
}

// Emergency, key frame, input. An asynchronous transform counts the frame's time in any case.
bool TransformBackend::Submit(const FrameOrder& order) {
  const TransformDriver::Sample sample = std::move(sample_);
  const int64_t time = sampleTime_;
  sample->SetTimes(time, sampleDuration_);
  if (order.emergency && !asynchronous_) {
    transform_->SetProperty(CodecProperty::EncodeQp, kEmergencyQp);
  }
  Mark(*sample, order.keyFrame);
  if (asynchronous_) {
    sampleTime_ += sampleDuration_;
    NoteTime();
  }
  const int32_t answer = driver_->Put(sample, time, order.timestamp);
  if (answer < 0) {
    OnRefused(answer);
    return false;
  }
  if (!asynchronous_) {
    sampleTime_ += sampleDuration_;
    NoteTime();
  }
  return true;
}

// What forces a key frame is the property. On a sample that serves all frames the mark stays once
// it is set: transforms are used to that.
void TransformBackend::Mark(TransformSample& sample, bool keyFrame) {
  if (keyFrame) {
    sample.MarkKeyFrame();
    transform_->SetProperty(CodecProperty::ForceKeyFrame, 1);
  } else if (asynchronous_) {
    sample.ClearMark();
  }
}

// The asynchronous driver has told of it.
void TransformBackend::OnRefused(int32_t error) {
  if (resident_) {
    LeaveResident(error);
  } else if (!asynchronous_) {
    PluginLog(kCategory, kLogError, "ProcessInput failed 0x%08x", static_cast<uint32_t>(error));
  }
}

// A sample of the device's that is refused ends that way, and the other one begins with a key
// frame.
void TransformBackend::LeaveResident(int32_t error) {
  if (!platform_->ResidentActive()) return;
  platform_->RefuseResident(error);
  owesKeyFrame_ = true;
}

void TransformBackend::NoteTime() {
  constexpr const char* kWays[2][2] = {{"CPU-readback", "CPU-readback(async)"},
                                       {"GPU-resident", "GPU-resident(async)"}};
  timer_.Add(clock_.NowNanos() - takenInNanos_, kWays[resident_][asynchronous_]);
}

// ---- Live changes ----

int32_t TransformBackend::SetMeanRate(uint32_t bitsPerSecond) {
  return transform_->SetProperty(CodecProperty::MeanBitRate, bitsPerSecond);
}

int32_t TransformBackend::SetMaxRate(uint32_t bitsPerSecond) {
  return transform_->SetProperty(CodecProperty::MaxBitRate, bitsPerSecond);
}

void TransformBackend::SetQuality(float quality) {
  const uint32_t percent = QualityPercent(quality);
  const int32_t answer = transform_->SetProperty(CodecProperty::Quality, percent);
  PluginLog(kCategory, kLogInfo, "SetQualityMode q=%.2f → CODECAPI_AVEncCommonQuality=%u hr=0x%08x",
            static_cast<double>(quality), percent, static_cast<uint32_t>(answer));
}

}  // namespace Veldrift
