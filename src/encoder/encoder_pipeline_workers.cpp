// The seamless way's two workers: the one that builds clones and the one that shuts encoders down.

#include <utility>

#include "encoder/encoder_pipeline.h"
#include "encoder/transition_log.h"
#include "support/debug_topics.h"
#include "support/guarded.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog{kLogSubsystem, "encoder"};

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
    ReconfigurePrimary(settings, epoch_);
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
  while (std::optional<Transition> next = NextRequest()) {
    RunGuarded(kLog, "transition", [&] { Serve(*next); });
    ClearBusy();
  }
}

std::optional<EncoderPipeline::Transition> EncoderPipeline::NextRequest() {
  MutexLock lock(requestMutex_);
  while (!cloneStop_ && !requestPending_) requestChanged_.Wait(lock);
  if (cloneStop_) return std::nullopt;
  requestPending_ = false;
  cloneBusy_ = true;
  Transition next;
  next.settings = requestSettings_;
  next.epoch = epoch_;
  return next;
}

void EncoderPipeline::Serve(Transition transition) {
  transition.startNanos = clock_.NowNanos();
  transition.fromWidth = GetEncoderWidth();
  transition.fromHeight = GetEncoderHeight();
  LogBegin(transition);
  DropPending();
  std::unique_ptr<IHardwareEncoder> clone;
  RunGuarded(kLog, "clone", [&] { clone = ClonePrimary(transition.settings); });
  if (clone) {
    AdoptClone(std::move(clone), transition);
    ClearBusy();
    WatchPending(transition.startNanos);
  } else {
    FallBack(transition);
  }
}

// The slow step. The lock is held shared, so frames go on; no swap can come between, since there is
// nothing pending.
std::unique_ptr<IHardwareEncoder> EncoderPipeline::ClonePrimary(const EncoderSettings& settings) {
  ReaderLock lock(primaryLock_);
  return primary_ ? primary_->Clone(settings) : nullptr;
}

void EncoderPipeline::LogBegin(const Transition& transition) const {
  const EncoderSettings& settings = transition.settings;
  DebugTopicLog(DebugTopic::Transitions,
                "begin mode=%s fromW=%d fromH=%d toW=%d toH=%d codec=%s rc=%s gop=%d bps=%u",
                mode_ == Mode::Seamless ? kTransitionModeSeamless : kTransitionModeConservative,
                transition.fromWidth, transition.fromHeight, settings.width, settings.height,
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

// A clone that ReconfigureInPlace has overtaken goes at once: that begins its epoch before it drops
// what is pending, so one of the two sees the other.
void EncoderPipeline::AdoptClone(std::unique_ptr<IHardwareEncoder> clone,
                                 const Transition& transition) {
  DebugTopicLog(DebugTopic::Transitions, "clone ok cloneSetupMs=%.1f",
                MillisSince(transition.startNanos));
  // Nothing that it makes before the swap may reach the stream.
  clone->SetOutputCallback([](const uint8_t*, uint64_t, bool, uint64_t) {});
  {
    MutexLock lock(pendingMutex_);
    if (transition.epoch == epoch_) {
      pending_ = std::move(clone);
      pendingActive_ = true;
      pendingFramesFed_ = 0;
      transitionStartNanos_ = transition.startNanos;
      pendingSettings_ = transition.settings;
    }
  }
  EnqueueRetire(std::move(clone));
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

void EncoderPipeline::FallBack(const Transition& transition) {
  DebugTopicLog(DebugTopic::Transitions,
                "clone failed — falling back to conservative in-place reconfigure");
  TransitionRecord record;
  record.fromWidth = transition.fromWidth;
  record.fromHeight = transition.fromHeight;
  record.toWidth = transition.settings.width;
  record.toHeight = transition.settings.height;
  record.cloneMs = record.totalMs = MillisSince(transition.startNanos);
  record.error = "clone_failed";
  WriteTransition(record, clock_.NowNanos());
  SetTarget(0, 0, 0);
  ReconfigurePrimary(transition.settings, transition.epoch);
}

void EncoderPipeline::ClearBusy() {
  MutexLock lock(requestMutex_);
  cloneBusy_ = false;
}

// ---- Retire worker ----

void EncoderPipeline::ShutDown(IHardwareEncoder& encoder) {
  RunGuarded(kLog, "shutdown of an encoder", [&] { encoder.Shutdown(); });
}

void EncoderPipeline::RetireLoop() {
  while (true) {
    EncoderPtr encoder;
    {
      MutexLock lock(retireMutex_);
      while (retireQueue_.empty() && !retireStop_) retireChanged_.Wait(lock);
      if (retireQueue_.empty()) {
        retireDone_ = true;
        return;
      }
      encoder = std::move(retireQueue_.back());
      retireQueue_.pop_back();
    }
    ShutDown(*encoder);
  }
}

// A frame that was still under way while the pipeline stopped can swap behind the worker's end:
// then its own thread does the work.
void EncoderPipeline::EnqueueRetire(EncoderPtr encoder) {
  if (!encoder) return;
  {
    MutexLock lock(retireMutex_);
    if (!retireDone_) {
      retireQueue_.push_back(std::move(encoder));
      retireChanged_.NotifyOne();
      return;
    }
  }
  ShutDown(*encoder);
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
