#include "encoder/encoder_shell.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

constexpr int32_t kMinSide = 16;
constexpr int32_t kDefaultFps = 30;
constexpr int32_t kPixelBytes = 4;

}  // namespace

EncoderShell::EncoderShell(BackendFactory makeBackend, std::string engineId)
    : makeBackend_(std::move(makeBackend)),
      engineId_(std::move(engineId)),
      backend_(makeBackend_()) {}

EncoderShell::~EncoderShell() { Shutdown(); }

// ---- Building ----

bool EncoderShell::Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) {
  MutexLock lock(encoderMutex_);
  return Build(static_cast<int32_t>(width), static_cast<int32_t>(height), bitrate,
               static_cast<int32_t>(fps));
}

// The values come by copy: tearing down clears those that are stored.
bool EncoderShell::Build(int32_t width, int32_t height, uint32_t bitrate, int32_t fps) {
  TearDown();
  if (width < kMinSide || height < kMinSide || fps < 1) {
    PluginLog(kCategory, kLogError, "Configure: invalid %dx%d@%d", width, height, fps);
    return false;
  }
  width_ = width;
  height_ = height;
  fps_ = fps;
  bitrate_ = bitrate != 0 ? bitrate : kDefaultBitrate;
  try {
    if (OpenBackend()) return true;
  } catch (...) {
    TearDown();
    throw;
  }
  TearDown();
  return false;
}

// A newly opened codec has nothing to refer to: its first frame is a key frame.
bool EncoderShell::OpenBackend() {
  const EncoderPlan plan = Plan();
  OpenedEncoder opened;
  port_->Open();
  if (!backend_->Open(plan, port_, opened)) return false;
  description_.Set(DescribeEncoder(
      {opened.name, opened.kind, plan.width, plan.height, plan.codec, plan.fps, opened.bitrate}));
  keyFrames_.Request();
  ready_ = true;
  PluginLog(kCategory, kLogInfo,
            "Configure OK%s: %dx%d @ %d fps, %u bps, codec=%s, gop=%d, ps=%zuB",
            opened.asynchronous ? " (async)" : "", plan.width, plan.height, plan.fps, plan.bitrate,
            plan.codec != kCodecHevc ? "H264" : "HEVC", plan.gopSize, opened.parameterSetBytes);
  return true;
}

EncoderPlan EncoderShell::Plan() {
  EncoderPlan plan;
  plan.codec = codec_;
  plan.width = width_;
  plan.height = height_;
  plan.fps = fps_;
  plan.gopSize = gopSize_;
  plan.bitrate = bitrate_;
  plan.peakBitrate = peakBitrate_;
  plan.rateControl = rateControl_;
  plan.maxBitrate = MaxBitrate(plan.rateControl, plan.bitrate, plan.peakBitrate);
  plan.quality = quality_;
  plan.frameByteCap = frameByteCap_;
  plan.engineId = engineId_;
  return plan;
}

void EncoderShell::Rebuild() {
  if (ready_ && width_ >= 1) Build(width_, height_, bitrate_, fps_);
}

void EncoderShell::TearDown() {
  if (ready_.exchange(false)) description_.Clear();
  backend_->Close();
  width_ = 0;
  height_ = 0;
  fps_ = kDefaultFps;
}

void EncoderShell::Shutdown() {
  {
    MutexLock lock(encoderMutex_);
    TearDown();
    port_->Seal();
  }
  port_->Drain();
}

std::unique_ptr<IHardwareEncoder> EncoderShell::Clone(const EncoderSettings& settings) {
  auto clone = std::make_unique<EncoderShell>(makeBackend_, engineId_);
  clone->Adopt(settings);
  if (clone->Configure(static_cast<uint32_t>(settings.width),
                       static_cast<uint32_t>(settings.height), settings.bitrate,
                       static_cast<uint32_t>(settings.fps))) {
    return clone;
  }
  PluginLog(kCategory, kLogError,
            "Clone: Configure failed (%dx%d@%d bps=%u) — pipeline will fall back to Conservative",
            settings.width, settings.height, settings.fps, settings.bitrate);
  return nullptr;
}

// What Configure isn't given, as it stands in the record.
void EncoderShell::Adopt(const EncoderSettings& settings) {
  MutexLock lock(encoderMutex_);
  codec_ = settings.codec;
  gopSize_ = std::max(settings.gopSize, 1);
  rateControl_ = settings.rateControl;
  quality_ = settings.quality;
  peakBitrate_ = settings.peakBitrate;
  frameByteCap_ = settings.frameByteCap != 0 ? settings.frameByteCap : kDefaultFrameByteCap;
}

// ---- Frames ----

// A row that is shorter than its pixels would be read past its end.
void EncoderShell::EncodeFrame(const uint8_t* bgra, uint32_t width, uint32_t height,
                               int32_t strideBytes, int64_t timestampMicros) {
  const BgraPicture frame{bgra, strideBytes, static_cast<int32_t>(width),
                          static_cast<int32_t>(height)};
  if (!bgra || frame.width <= 0 || frame.height <= 0 || strideBytes / kPixelBytes < frame.width) {
    return;
  }
  // An encoder that is retired while its last unit goes out isn't touched behind that.
  const std::shared_ptr<OutputPort> port = port_;
  {
    MutexLock lock(encoderMutex_);
    if (ready_) Encode(frame, timestampMicros);
  }
  port->Emit();
}

// Emergency, key frame, input, in this order; a frame that isn't taken in uses neither up.
void EncoderShell::Encode(const BgraPicture& frame, int64_t timestampMicros) {
  input_.Set(frame, width_, height_);
  FrameOrder order;
  order.timestamp = static_cast<uint64_t>(timestampMicros);
  order.emergency = emergency_.Due();
  const EncoderBackend::Intake intake = TakeIn(order.emergency);
  if (intake == EncoderBackend::Intake::Dropped) return;
  if (intake == EncoderBackend::Intake::Failed) {
    TearDown();
    return;
  }
  if (order.emergency) emergency_.Take();
  if (intake == EncoderBackend::Intake::TakenNew) keyFrames_.Request();
  order.keyFrame = keyFrames_.Place(gopSize_);
  Submit(order);
}

// A backend that fails here by an exception may have lost its codec in between: the encoder is not
// Ready any more, and whoever looks at that builds it anew.
EncoderBackend::Intake EncoderShell::TakeIn(bool emergency) {
  try {
    return backend_->TakeIn(input_, emergency);
  } catch (...) {
    TearDown();
    throw;
  }
}

// A key frame that failed is still owed.
void EncoderShell::Submit(const FrameOrder& order) {
  bool submitted = false;
  try {
    submitted = backend_->Submit(order);
  } catch (...) {
    if (order.keyFrame) keyFrames_.Request();
    throw;
  }
  if (!submitted && order.keyFrame) keyFrames_.Request();
}

void EncoderShell::SetOutputCallback(EncodedFrameCallback callback) {
  port_->SetCallback(std::move(callback));
}

// ---- Settings that rebuild ----

void EncoderShell::SetGopSize(int32_t frames) {
  MutexLock lock(encoderMutex_);
  const int32_t wanted = std::max(frames, 1);
  if (gopSize_.exchange(wanted) != wanted) Rebuild();
}

void EncoderShell::SetCodec(int32_t codec) {
  MutexLock lock(encoderMutex_);
  if (codec_.exchange(codec) != codec) Rebuild();
}

void EncoderShell::SetRateControl(int32_t mode, float quality) {
  MutexLock lock(encoderMutex_);
  const float wanted = ClampQuality(quality);
  if (rateControl_ == mode && !QualityDiffers(quality_, wanted)) return;
  rateControl_ = mode;
  quality_ = wanted;
  Rebuild();
}

// ---- Live settings ----

void EncoderShell::SetBitrate(uint32_t bitsPerSecond) {
  if (bitsPerSecond == 0 || bitrate_.exchange(bitsPerSecond) == bitsPerSecond) return;
  MutexLock lock(encoderMutex_);
  if (TakesChanges()) backend_->SetMeanRate(bitrate_);
}

void EncoderShell::SetPeakBitrate(uint32_t bitsPerSecond) {
  if (bitsPerSecond == 0) return;
  MutexLock lock(encoderMutex_);
  if (!TakesChanges() || rateControl_ != kRateControlVbr) return;
  const uint32_t mean = bitrate_;
  peakBitrate_ = PeakAtLeastMean(bitsPerSecond, mean);
  if (const int32_t error = backend_->SetMaxRate(peakBitrate_); error < 0) {
    PluginLog(kCategory, kLogInfo,
              "SetPeakBitrate: live SetValue rejected 0x%08x — will apply on next reconfigure",
              static_cast<uint32_t>(error));
    return;
  }
  PluginLog(kCategory, kLogInfo, "SetPeakBitrate: max=%u bps (mean=%u, ratio=%.2f)", peakBitrate_,
            mean, mean != 0 ? static_cast<double>(peakBitrate_) / mean : 0.0);
}

void EncoderShell::SetHrdBufferBits(int64_t bufferBits, int64_t averageBits) {
  const std::optional<HrdRates> rates = RatesForHrd(bufferBits, averageBits);
  if (!rates) return;
  MutexLock lock(encoderMutex_);
  if (!TakesChanges()) return;
  const int32_t meanError = backend_->SetMeanRate(rates->mean);
  const int32_t maxError = backend_->SetMaxRate(rates->max);
  PluginLog(kCategory, kLogInfo,
            "SetHrdBufferBits: buf=%lld avg=%lld → mean=%u max=%u hr=(0x%08x,0x%08x)",
            static_cast<long long>(bufferBits), static_cast<long long>(averageBits), rates->mean,
            rates->max, static_cast<uint32_t>(meanError), static_cast<uint32_t>(maxError));
}

void EncoderShell::SetQualityMode(float quality) {
  MutexLock lock(encoderMutex_);
  const float wanted = ClampQuality(quality);
  if (!QualityDiffers(quality_, wanted)) return;
  quality_ = wanted;
  if (!TakesChanges()) return;
  if (rateControl_ == kRateControlQuality) {
    backend_->SetQuality(wanted);
    return;
  }
  PluginLog(kCategory, kLogInfo, "SetQualityMode q=%.2f stored (not in Quality mode)",
            static_cast<double>(wanted));
}

void EncoderShell::TriggerEmergencyCompression(int32_t frames) {
  if (!emergency_.Trigger(frames)) return;
  keyFrames_.Request();
  PluginLog(kCategory, kLogInfo, "emergency compression: %d frames at QP=%d", frames, kEmergencyQp);
}

}  // namespace Veldrift
