// The pipeline's two workers: the one that builds clones and the one that shuts encoders down.

#include <utility>

#include "encoder/encoder_pipeline.h"
#include "encoder/transition_log.h"
#include "support/debug_topics.h"

namespace Veldrift {
namespace {

constexpr int kPendingPolls = 100;
constexpr int64_t kPendingPollNanos = 5 * kNanosPerMilli;

// What makes two transitions the same: rates and quality don't.
bool SameTransition(const EncoderSettings& a, const EncoderSettings& b) {
  return a.width == b.width && a.height == b.height && a.fps == b.fps && a.codec == b.codec &&
         a.gopSize == b.gopSize && a.rateControl == b.rateControl;
}

const char* RateControlName(int32_t mode) {
  switch (mode) {
    case kRateControlBitrate:
      return "Bitrate";
    case kRateControlQuality:
      return "Quality";
    case kRateControlVbr:
      return "VBR";
    default:
      return "?";
  }
}

}  // namespace

// ---- Requests ----

void EncoderPipeline::RequestTransition(const EncoderSettings& settings) {
  if (mode_ == Mode::Conservative) {
    ReconfigurePrimary(settings);
    return;
  }
  if (TransitionUnderWay(settings)) return;
  SetTarget(settings.width, settings.height, settings.fps);
  MutexLock lock(requestMutex_);
  requestSettings_ = settings;
  requestPending_ = true;
  requestChanged_.NotifyOne();
}

bool EncoderPipeline::TransitionUnderWay(const EncoderSettings& settings) {
  {
    MutexLock lock(pendingMutex_);
    if (pendingActive_ && SameTransition(pendingSettings_, settings)) return true;
  }
  MutexLock lock(requestMutex_);
  return requestPending_ && SameTransition(requestSettings_, settings);
}

// ---- Clone worker ----

void EncoderPipeline::CloneLoop() {
  while (const std::optional<EncoderSettings> settings = NextRequest()) ServeRequest(*settings);
}

std::optional<EncoderSettings> EncoderPipeline::NextRequest() {
  MutexLock lock(requestMutex_);
  while (!cloneStop_ && !requestPending_) requestChanged_.Wait(lock);
  if (cloneStop_) return std::nullopt;
  requestPending_ = false;
  cloneBusy_ = true;
  return requestSettings_;
}

void EncoderPipeline::ServeRequest(const EncoderSettings& settings) {
  const int64_t start = clock_.NowNanos();
  const int32_t fromWidth = GetEncoderWidth();
  const int32_t fromHeight = GetEncoderHeight();
  LogBegin(settings, fromWidth, fromHeight);
  DropPending();
  std::unique_ptr<IHardwareEncoder> clone = ClonePrimary(settings);
  if (clone) {
    AdoptClone(std::move(clone), settings, start);
    ClearBusy();
    WatchPending(start);
  } else {
    FallBack(settings, fromWidth, fromHeight, start);
    ClearBusy();
  }
}

// The slow step. The lock is held shared, so frames go on; no swap can come between, since there is
// nothing pending.
std::unique_ptr<IHardwareEncoder> EncoderPipeline::ClonePrimary(const EncoderSettings& settings) {
  ReaderLock lock(primaryLock_);
  return primary_ ? primary_->Clone(settings) : nullptr;
}

void EncoderPipeline::LogBegin(const EncoderSettings& settings, int32_t fromWidth,
                               int32_t fromHeight) const {
  DebugTopicLog(DebugTopic::Transitions,
                "begin mode=%s fromW=%d fromH=%d toW=%d toH=%d codec=%s rc=%s gop=%d bps=%u",
                mode_ == Mode::Seamless ? kTransitionModeSeamless : kTransitionModeConservative,
                fromWidth, fromHeight, settings.width, settings.height,
                settings.codec != 0 ? "H264" : "HEVC", RateControlName(settings.rateControl),
                settings.gopSize, settings.bitrate);
}

void EncoderPipeline::DropPending() {
  EncoderPtr stale;
  {
    MutexLock lock(pendingMutex_);
    stale = std::exchange(pending_, nullptr);
    if (stale) pendingActive_ = false;
  }
  EnqueueRetire(std::move(stale));
}

void EncoderPipeline::AdoptClone(std::unique_ptr<IHardwareEncoder> clone,
                                 const EncoderSettings& settings, int64_t startNanos) {
  DebugTopicLog(DebugTopic::Transitions, "clone ok cloneSetupMs=%.1f", MillisSince(startNanos));
  // Nothing that it makes before the swap may reach the stream.
  clone->SetOutputCallback([](const uint8_t*, uint64_t, bool, uint64_t) {});
  MutexLock lock(pendingMutex_);
  pending_ = std::move(clone);
  pendingActive_ = true;
  pendingFramesFed_ = 0;
  transitionStartNanos_ = startNanos;
  pendingSettings_ = settings;
}

// Only reports: the swap doesn't wait for it, and comes whenever the key frame does.
void EncoderPipeline::WatchPending(int64_t startNanos) {
  for (int poll = 0; poll < kPendingPolls && !cloneStop_; ++poll) {
    clock_.SleepFor(kPendingPollNanos);
    if (ReportPending(startNanos)) return;
  }
}

bool EncoderPipeline::ReportPending(int64_t startNanos) {
  MutexLock lock(pendingMutex_);
  if (!pendingActive_) return true;
  if (!pending_ || !pending_->HasEmittedKeyframe()) return false;
  DebugTopicLog(DebugTopic::Transitions, "pending ready after %d frames firstKeyMs=%.1f",
                pendingFramesFed_, MillisSince(startNanos));
  return true;
}

void EncoderPipeline::FallBack(const EncoderSettings& settings, int32_t fromWidth,
                               int32_t fromHeight, int64_t startNanos) {
  DebugTopicLog(DebugTopic::Transitions,
                "clone failed — falling back to conservative in-place reconfigure");
  TransitionRecord record;
  record.fromWidth = fromWidth;
  record.fromHeight = fromHeight;
  record.toWidth = settings.width;
  record.toHeight = settings.height;
  record.cloneMs = record.totalMs = MillisSince(startNanos);
  record.error = "clone_failed";
  WriteTransition(record, clock_.NowNanos());
  SetTarget(0, 0, 0);
  ReconfigurePrimary(settings);
}

void EncoderPipeline::ClearBusy() {
  MutexLock lock(requestMutex_);
  cloneBusy_ = false;
}

// ---- Retire worker ----

void EncoderPipeline::RetireLoop() {
  while (true) {
    EncoderPtr encoder;
    {
      MutexLock lock(retireMutex_);
      while (retireQueue_.empty() && !retireStop_) retireChanged_.Wait(lock);
      if (retireQueue_.empty()) return;
      encoder = std::move(retireQueue_.back());
      retireQueue_.pop_back();
    }
    encoder->Shutdown();
  }
}

void EncoderPipeline::EnqueueRetire(EncoderPtr encoder) {
  if (!encoder) return;
  MutexLock lock(retireMutex_);
  retireQueue_.push_back(std::move(encoder));
  retireChanged_.NotifyOne();
}

void EncoderPipeline::StopWorkers() {
  cloneStop_ = true;
  {
    MutexLock lock(requestMutex_);
    requestPending_ = true;
    requestChanged_.NotifyAll();
  }
  if (cloneThread_.joinable()) cloneThread_.join();
  retireStop_ = true;
  {
    MutexLock lock(retireMutex_);
    retireChanged_.NotifyAll();
  }
  if (retireThread_.joinable()) retireThread_.join();
}

}  // namespace Veldrift
