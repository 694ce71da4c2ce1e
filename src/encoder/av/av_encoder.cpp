#include "encoder/av/av_encoder.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "encoder/encoder_description.h"
#include "encoder/nearest_scale.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

constexpr int32_t kMinSide = 16;
constexpr int32_t kDefaultFps = 30;

}  // namespace

AvEncoder::AvEncoder(const std::string& engineId) : engineId_(engineId) {}

AvEncoder::~AvEncoder() {
  MutexLock lock(encoderMutex_);
  TearDown();
}

// ---- Building ----

bool AvEncoder::Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) {
  MutexLock lock(encoderMutex_);
  return ConfigureLocked(static_cast<int32_t>(width), static_cast<int32_t>(height), bitrate,
                         static_cast<int32_t>(fps));
}

bool AvEncoder::ConfigureLocked(int32_t width, int32_t height, uint32_t bitrate, int32_t fps) {
  TearDown();
  if (width < kMinSide || height < kMinSide || fps < 1) {
    PluginLog(kCategory, kLogError, "Configure: invalid %dx%d@%d", width, height, fps);
    return false;
  }
  width_ = width;
  height_ = height;
  fps_ = fps;
  bitrate_ = bitrate != 0 ? bitrate : kDefaultBitrate;
  rates_ = {bitrate_, MaxBitrate(rateControl_, bitrate_, peakBitrate_)};
  firstKeyEmitted_ = false;
  if (!OpenSession(false)) {
    TearDown();
    return false;
  }
  SetDescription(DescribeEncoder({session_->Name(), "SW", width, height, codec_, fps, bitrate_}));
  PluginLog(kCategory, kLogInfo, "Configure OK: %dx%d @ %d fps, %u bps, codec=%s, gop=%d", width,
            height, fps, bitrate_.load(), codec_ != kCodecHevc ? "H264" : "HEVC", gopSize_.load());
  return true;
}

// A newly opened codec has nothing to refer to: its first frame is a key frame. Behind a failure
// the caller tears down.
bool AvEncoder::OpenSession(bool emergency) {
  CodecConfig config;
  config.codec = codec_ == kCodecH264 ? kCodecH264 : kCodecHevc;
  config.width = width_ & ~1;
  config.height = height_ & ~1;
  config.fps = fps_;
  config.rateControl = rateControl_;
  config.quality = quality_;
  config.rates = rates_;
  config.frameByteCap = frameByteCap_;
  config.emergency = emergency;
  session_.reset();  // the old codec's threads end before the new one's start
  session_ = AvCodecSession::Open(config);
  if (!session_) return false;
  ready_ = true;
  session_->SetEmergency(emergency);
  reopen_ = false;
  keyFrames_.Request();
  return true;
}

void AvEncoder::RebuildLocked() {
  if (session_ && width_ >= 1) ConfigureLocked(width_, height_, bitrate_, fps_);
}

void AvEncoder::TearDown() {
  if (ready_.exchange(false)) SetDescription({});
  session_.reset();
  reopen_ = false;
  width_ = 0;
  height_ = 0;
  fps_ = kDefaultFps;
}

void AvEncoder::Shutdown() {
  MutexLock lock(encoderMutex_);
  TearDown();
}

std::unique_ptr<IHardwareEncoder> AvEncoder::Clone(const EncoderSettings& settings) {
  auto clone = std::make_unique<AvEncoder>(engineId_);
  clone->codec_ = settings.codec;
  clone->gopSize_ = std::max(settings.gopSize, 1);
  clone->rateControl_ = settings.rateControl;
  clone->peakBitrate_ = settings.peakBitrate;
  clone->frameByteCap_ = settings.frameByteCap != 0 ? settings.frameByteCap : kDefaultFrameByteCap;
  bool configured = false;
  {
    MutexLock lock(clone->encoderMutex_);
    clone->quality_ = settings.quality;
    configured =
        clone->ConfigureLocked(settings.width, settings.height, settings.bitrate, settings.fps);
  }
  if (configured) return clone;
  PluginLog(kCategory, kLogError,
            "Clone: Configure failed (%dx%d@%d bps=%u) — pipeline will fall back to Conservative",
            settings.width, settings.height, settings.fps, settings.bitrate);
  return nullptr;
}

std::string AvEncoder::GetDescription() {
  MutexLock lock(descriptionMutex_);
  return description_;
}

void AvEncoder::SetDescription(const std::string& text) {
  SetActiveEncoderDescription(text);
  MutexLock lock(descriptionMutex_);
  description_ = text;
}

// ---- Frames ----

void AvEncoder::EncodeFrame(const uint8_t* bgra, uint32_t width, uint32_t height,
                            int32_t strideBytes, int64_t timestampMicros) {
  const auto frameWidth = static_cast<int32_t>(width);
  const auto frameHeight = static_cast<int32_t>(height);
  if (!bgra || frameWidth <= 0 || frameHeight <= 0 || strideBytes <= 0) return;
  MutexLock frame(frameMutex_);
  bool produced = false;
  {
    MutexLock lock(encoderMutex_);
    produced = EncodeLocked(bgra, frameWidth, frameHeight, strideBytes, timestampMicros);
  }
  if (produced) Emit(unit_);
}

bool AvEncoder::EncodeLocked(const uint8_t* bgra, int32_t width, int32_t height,
                             int32_t strideBytes, int64_t timestampMicros) {
  if (!session_) return false;
  const bool emergency = emergency_.Take();
  if ((!session_->SetEmergency(emergency) || reopen_) && !OpenSession(emergency)) {
    TearDown();
    return false;
  }
  if (width != width_ || height != height_) {
    scaled_.resize(size_t{4} * static_cast<size_t>(width_) * static_cast<size_t>(height_));
    ScaleNearest(bgra, static_cast<size_t>(strideBytes), width, height, scaled_.data(), width_,
                 height_);
    bgra = scaled_.data();
    strideBytes = width_ * 4;
  }
  FrameOrder order;
  order.timestamp = static_cast<uint64_t>(timestampMicros);
  order.keyFrame = keyFrames_.Place(gopSize_);
  if (!session_->Encode(bgra, strideBytes, order, unit_)) {
    if (order.keyFrame) keyFrames_.Request();  // still owed
    return false;
  }
  PluginLog(kCategory, kLogDebug, "frame encoded: %zu bytes keyframe=%d", unit_.data.size(),
            unit_.keyFrame);
  if (unit_.keyFrame) firstKeyEmitted_ = true;
  return true;
}

void AvEncoder::Emit(const EncodedUnit& unit) {
  EncodedFrameCallback callback;
  {
    MutexLock lock(callbackMutex_);
    callback = outputCallback_;
  }
  if (callback) callback(unit.data.data(), unit.data.size(), unit.keyFrame, unit.timestamp);
}

void AvEncoder::SetOutputCallback(EncodedFrameCallback callback) {
  {
    MutexLock lock(callbackMutex_);
    std::swap(outputCallback_, callback);
  }
  // The old one dies here, outside the lock.
}

// ---- Settings that rebuild ----

void AvEncoder::SetGopSize(int32_t frames) {
  MutexLock lock(encoderMutex_);
  const int32_t wanted = std::max(frames, 1);
  if (gopSize_.exchange(wanted) != wanted) RebuildLocked();
}

void AvEncoder::SetCodec(int32_t codec) {
  MutexLock lock(encoderMutex_);
  if (codec_.exchange(codec) != codec) RebuildLocked();
}

void AvEncoder::SetRateControl(int32_t mode, float quality) {
  MutexLock lock(encoderMutex_);
  const float wanted = ClampQuality(quality);
  if (rateControl_ == mode && !QualityDiffers(quality_, wanted)) return;
  rateControl_ = mode;
  quality_ = wanted;
  RebuildLocked();
}

// ---- Live settings ----

void AvEncoder::SetBitrate(uint32_t bitsPerSecond) {
  if (bitsPerSecond == 0 || bitrate_.exchange(bitsPerSecond) == bitsPerSecond) return;
  MutexLock lock(encoderMutex_);
  if (!session_) return;
  rates_ = {bitrate_, MaxBitrate(rateControl_, bitrate_, peakBitrate_)};
  ApplyRates();
}

void AvEncoder::SetPeakBitrate(uint32_t bitsPerSecond) {
  if (bitsPerSecond == 0) return;
  MutexLock lock(encoderMutex_);
  if (!session_ || rateControl_ != kRateControlVbr) return;
  const uint32_t mean = bitrate_;
  const uint32_t peak = PeakAtLeastMean(bitsPerSecond, mean);
  peakBitrate_ = peak;
  rates_.max = peak;
  ApplyRates();
  PluginLog(kCategory, kLogInfo, "SetPeakBitrate: max=%u bps (mean=%u, ratio=%.2f)", peak, mean,
            mean != 0 ? static_cast<double>(peak) / mean : 0.0);
}

void AvEncoder::SetHrdBufferBits(int64_t bufferBits, int64_t averageBits) {
  const std::optional<HrdRates> rates = RatesForHrd(bufferBits, averageBits);
  if (!rates) return;
  MutexLock lock(encoderMutex_);
  if (!session_) return;
  rates_ = {rates->mean, rates->max};
  ApplyRates();
  PluginLog(kCategory, kLogInfo, "SetHrdBufferBits: buf=%lld avg=%lld → mean=%u max=%u",
            static_cast<long long>(bufferBits), static_cast<long long>(averageBits), rates->mean,
            rates->max);
}

// In quality mode the rates decide nothing: no codec is opened anew for them.
void AvEncoder::ApplyRates() {
  if (rateControl_ != kRateControlQuality && !session_->SetRates(rates_)) reopen_ = true;
}

void AvEncoder::SetQualityMode(float quality) {
  MutexLock lock(encoderMutex_);
  const float wanted = ClampQuality(quality);
  if (!QualityDiffers(quality_, wanted)) return;
  quality_ = wanted;
  if (!session_) return;
  if (rateControl_ != kRateControlQuality) {
    PluginLog(kCategory, kLogInfo, "SetQualityMode q=%.2f stored (not in Quality mode)",
              static_cast<double>(wanted));
    return;
  }
  if (!session_->SetQuality(wanted)) reopen_ = true;
  PluginLog(kCategory, kLogInfo, "SetQualityMode q=%.2f → crf=%.2f", static_cast<double>(wanted),
            static_cast<double>(RateFactorOf(wanted)));
}

void AvEncoder::TriggerEmergencyCompression(int32_t frames) {
  if (!emergency_.Trigger(frames)) return;
  keyFrames_.Request();
  PluginLog(kCategory, kLogInfo, "emergency compression: %d frames at QP=%d", frames, kEmergencyQp);
}

}  // namespace Veldrift
