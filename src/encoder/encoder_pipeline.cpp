#include "encoder/encoder_pipeline.h"

#include <algorithm>
#include <utility>

#include "encoder/transition_log.h"
#include "support/debug_topics.h"

namespace Veldrift {

EncoderPipeline::EncoderPipeline(std::unique_ptr<IHardwareEncoder> primary, Clock& clock)
    : clock_(clock), primary_(std::move(primary)) {
  retireThread_ = std::thread([this] { RetireLoop(); });
  try {
    cloneThread_ = std::thread([this] { CloneLoop(); });
  } catch (...) {
    StopWorkers();
    throw;
  }
  const EncoderPtr encoder = Primary();
  forwardingEncoder_ = encoder.get();
  if (encoder) InstallPrimaryCallback(*encoder);
}

EncoderPipeline::~EncoderPipeline() { Stop(); }

void EncoderPipeline::Stop() {
  StopWorkers();
  forwardingEncoder_ = nullptr;
  SetOutputCallback({});
  EncoderPtr clone;
  EncoderPtr primary;
  {
    MutexLock lock(pendingMutex_);
    clone = std::move(pending_);
    pending_ = nullptr;
    pendingActive_ = false;
  }
  {
    WriterLock lock(primaryLock_);
    primary = std::move(primary_);
    primary_ = nullptr;
  }
  if (clone) ShutDown(*clone);
  if (primary) ShutDown(*primary);
}

// ---- Frames ----

void EncoderPipeline::EncodeFrame(const uint8_t* bgra, uint32_t width, uint32_t height,
                                  int32_t strideBytes, int64_t timestampMicros) {
  if (const EncoderPtr primary = Primary()) {
    primary->EncodeFrame(bgra, width, height, strideBytes, timestampMicros);
  }
  if (const EncoderPtr clone = CountPendingFrame()) {
    clone->EncodeFrame(bgra, width, height, strideBytes, timestampMicros);
  }
  TrySwap();
}

EncoderPipeline::EncoderPtr EncoderPipeline::Primary() {
  ReaderLock lock(primaryLock_);
  return primary_;
}

EncoderPipeline::EncoderPtr EncoderPipeline::CountPendingFrame() {
  MutexLock lock(pendingMutex_);
  if (!pendingActive_) return nullptr;
  ++pendingFramesFed_;
  return pending_;
}

bool EncoderPipeline::SwapReady() {
  return pendingActive_ && pending_ && pending_->HasEmittedKeyframe();
}

void EncoderPipeline::TrySwap() {
  {
    MutexLock lock(pendingMutex_);
    if (!SwapReady()) return;
  }
  TransitionRecord record;
  std::optional<EncoderPtr> old = Swap(record);
  if (!old) return;
  DebugTopicLog(DebugTopic::Transitions,
                "swap complete fromW=%d fromH=%d toW=%d toH=%d swapMs=%.1f totalMs=%.1f "
                "framesDropped=0",
                record.fromWidth, record.fromHeight, record.toWidth, record.toHeight, record.swapMs,
                record.totalMs);
  WriteTransition(record, clock_.NowNanos());
  SetTarget(0, 0, 0);
  EnqueueRetire(std::move(*old));
}

std::optional<EncoderPipeline::EncoderPtr> EncoderPipeline::Swap(TransitionRecord& record) {
  MutexLock pendingLock(pendingMutex_);
  if (!SwapReady()) return std::nullopt;
  EncoderPtr old;
  const int64_t start = clock_.NowNanos();
  {
    WriterLock lock(primaryLock_);
    record.fromWidth = primary_ ? primary_->GetWidth() : 0;
    record.fromHeight = primary_ ? primary_->GetHeight() : 0;
    record.toWidth = pending_->GetWidth();
    record.toHeight = pending_->GetHeight();
    old = std::exchange(primary_, std::exchange(pending_, nullptr));
    pendingActive_ = false;
    forwardingEncoder_ = primary_.get();
    InstallPrimaryCallback(*primary_);
    // The clone's first key frame was discarded: the stream needs one of its own.
    primary_->RequestIdr();
  }
  record.swapMs = MillisSince(start);
  record.totalMs = MillisSince(transitionStartNanos_);
  return old;
}

void EncoderPipeline::InstallPrimaryCallback(IHardwareEncoder& encoder) {
  const IHardwareEncoder* from = &encoder;
  encoder.SetOutputCallback(
      [this, from](const uint8_t* data, uint64_t size, bool keyFrame, uint64_t timestamp) {
        Forward(from, data, size, keyFrame, timestamp);
      });
}

void EncoderPipeline::Forward(const IHardwareEncoder* from, const uint8_t* data, uint64_t size,
                              bool keyFrame, uint64_t timestamp) {
  if (from != forwardingEncoder_) return;  // late output of an encoder that was swapped out
  MutexLock lock(outputMutex_);
  if (outputCallback_) outputCallback_(data, size, keyFrame, timestamp);
}

void EncoderPipeline::SetOutputCallback(EncodedFrameCallback callback) {
  {
    MutexLock lock(outputMutex_);
    std::swap(outputCallback_, callback);
  }
  // The old one dies here, outside the lock: it may own something that calls back.
}

// ---- The conservative way ----

void EncoderPipeline::ReconfigureInPlace(const EncoderSettings& settings) {
  uint64_t epoch = 0;
  {
    MutexLock lock(requestMutex_);
    epoch = ++epoch_;
    requestPending_ = false;
  }
  DropPending();
  SetTarget(0, 0, 0);
  ReconfigurePrimary(settings, epoch);
}

void EncoderPipeline::ReconfigurePrimary(const EncoderSettings& settings, uint64_t epoch) {
  WriterLock lock(primaryLock_);
  if (!primary_ || epoch != epoch_) return;
  TransitionRecord record;
  record.mode = kTransitionModeConservative;
  record.fromWidth = primary_->GetWidth();
  record.fromHeight = primary_->GetHeight();
  record.toWidth = settings.width;
  record.toHeight = settings.height;
  const int64_t start = clock_.NowNanos();

  primary_->SetCodec(settings.codec);
  primary_->SetGopSize(std::max(settings.gopSize, 1));
  primary_->SetRateControl(settings.rateControl, settings.quality);
  primary_->SetFrameByteCap(settings.frameByteCap ? settings.frameByteCap : kDefaultFrameByteCap);
  primary_->Configure(static_cast<uint32_t>(settings.width), static_cast<uint32_t>(settings.height),
                      settings.bitrate, static_cast<uint32_t>(settings.fps));
  if (settings.peakBitrate != 0) primary_->SetPeakBitrate(settings.peakBitrate);
  primary_->RequestKeyframe();

  record.totalMs = MillisSince(start);
  DebugTopicLog(DebugTopic::Transitions,
                "single-encoder reconfigure fromW=%d fromH=%d toW=%d toH=%d durationMs=%.1f "
                "framesDropped=0",
                record.fromWidth, record.fromHeight, record.toWidth, record.toHeight,
                record.totalMs);
  WriteTransition(record, clock_.NowNanos());
}

void EncoderPipeline::SetTarget(int32_t width, int32_t height, int32_t fps) {
  targetWidth_ = width;
  targetHeight_ = height;
  targetFps_ = fps;
}

double EncoderPipeline::MillisSince(int64_t startNanos) const {
  return static_cast<double>(clock_.NowNanos() - startNanos) / 1'000'000.0;
}

// ---- Forwarding ----

template <typename Result, typename Question>
Result EncoderPipeline::Ask(Result fallback, Question question) {
  ReaderLock lock(primaryLock_);
  return primary_ ? question(*primary_) : fallback;
}

template <typename Change>
void EncoderPipeline::ChangeBoth(Change change) {
  {
    WriterLock lock(primaryLock_);
    if (primary_) change(*primary_);
  }
  MutexLock lock(pendingMutex_);
  if (pending_) change(*pending_);
}

bool EncoderPipeline::Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) {
  return Ask(false, [&](IHardwareEncoder& encoder) {
    return encoder.Configure(width, height, bitrate, fps);
  });
}

bool EncoderPipeline::Ready() {
  return Ask(false, [](IHardwareEncoder& encoder) { return encoder.Ready(); });
}

int32_t EncoderPipeline::GetEncoderWidth() {
  return Ask(0, [](IHardwareEncoder& encoder) { return encoder.GetWidth(); });
}

int32_t EncoderPipeline::GetEncoderHeight() {
  return Ask(0, [](IHardwareEncoder& encoder) { return encoder.GetHeight(); });
}

int32_t EncoderPipeline::GetEncoderFps() {
  return Ask(0, [](IHardwareEncoder& encoder) { return encoder.GetFps(); });
}

int32_t EncoderPipeline::GetWidth() {
  const int32_t target = targetWidth_;
  return target > 0 ? target : GetEncoderWidth();
}

int32_t EncoderPipeline::GetHeight() {
  const int32_t target = targetHeight_;
  return target > 0 ? target : GetEncoderHeight();
}

int32_t EncoderPipeline::GetFps() {
  const int32_t target = targetFps_;
  return target > 0 ? target : GetEncoderFps();
}

uint32_t EncoderPipeline::GetBitrate() {
  return Ask(0U, [](IHardwareEncoder& encoder) { return encoder.GetBitrate(); });
}

int32_t EncoderPipeline::GetGopSize() {
  return Ask(1, [](IHardwareEncoder& encoder) { return encoder.GetGopSize(); });
}

int32_t EncoderPipeline::GetCodec() {
  return Ask(0, [](IHardwareEncoder& encoder) { return encoder.GetCodec(); });
}

int32_t EncoderPipeline::GetRateControl() {
  return Ask(0, [](IHardwareEncoder& encoder) { return encoder.GetRateControl(); });
}

uint32_t EncoderPipeline::GetFrameByteCap() {
  return Ask(kDefaultFrameByteCap,
             [](IHardwareEncoder& encoder) { return encoder.GetFrameByteCap(); });
}

std::string EncoderPipeline::GetDescription() {
  return Ask(std::string(), [](IHardwareEncoder& encoder) { return encoder.GetDescription(); });
}

void EncoderPipeline::TriggerEmergencyCompression(int32_t frames) {
  ReaderLock lock(primaryLock_);
  if (primary_) primary_->TriggerEmergencyCompression(frames);
}

void EncoderPipeline::RequestIdr() {
  {
    ReaderLock lock(primaryLock_);
    if (primary_) primary_->RequestIdr();
  }
  MutexLock lock(pendingMutex_);
  if (pending_) pending_->RequestIdr();
}

void EncoderPipeline::SetCodec(int32_t codec) {
  ChangeBoth([codec](IHardwareEncoder& encoder) { encoder.SetCodec(codec); });
}

void EncoderPipeline::SetGopSize(int32_t frames) {
  ChangeBoth([frames](IHardwareEncoder& encoder) { encoder.SetGopSize(frames); });
}

void EncoderPipeline::SetRateControl(int32_t mode, float quality) {
  ChangeBoth([mode, quality](IHardwareEncoder& encoder) { encoder.SetRateControl(mode, quality); });
}

}  // namespace Veldrift
