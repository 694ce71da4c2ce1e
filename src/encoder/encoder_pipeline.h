// The session's only way to an encoder.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "encoder/hardware_encoder.h"
#include "platform/mutex.h"
#include "support/clock.h"

namespace Veldrift {

struct TransitionRecord;

// Owns the primary encoder, which makes the stream. Two ways change it while it runs:
//
// - In place, the live one: ReconfigureInPlace and the setters reconfigure the one encoder, and
//   frames wait meanwhile. The session uses nothing else.
// - Seamlessly, ready but not used by the session yet: RequestTransition has a second encoder, the
//   pending clone, built for the new settings on a thread of its own and fed the same frames until
//   its first key frame is out; then the two are swapped and the stream changes without a gap. Only
//   the self test "P1.1" asks for that. Everything that says pending, clone, request or target, and
//   all of encoder_pipeline_workers.cpp, belongs to it.
//
// An encoder that was swapped out is shut down on another thread, so that a slow or re-entrant
// Shutdown holds up neither frames nor a swap.
//
// Threads: everything from any thread; frames that come at once are ordered by the encoder. Two own
// threads: the clone worker (CloneLoop) and the retire worker (RetireLoop); a job of theirs that
// fails by an exception costs that job and no more.
//
// Locks: pendingMutex_ before primaryLock_; only a swap holds both. An encoder's EncodeFrame and
// Shutdown are called with no lock of the pipeline held, since an encoder may call back from inside
// them. The output callback runs under outputMutex_ and may ask the pipeline back, so outputMutex_
// is never taken under another lock of it.
class EncoderPipeline {
 public:
  // `primary` may be null: every question then has its empty answer.
  explicit EncoderPipeline(std::unique_ptr<IHardwareEncoder> primary, Clock& clock = SystemClock());
  ~EncoderPipeline();
  EncoderPipeline(const EncoderPipeline&) = delete;
  EncoderPipeline& operator=(const EncoderPipeline&) = delete;

  // Gives the frame to the primary and to a pending clone, and swaps them if the clone is ready.
  void EncodeFrame(const uint8_t* bgra, uint32_t width, uint32_t height, int32_t strideBytes,
                   int64_t timestampMicros);
  // Starts a seamless transition, unless one to the same size, rate, codec, GOP and rate control
  // mode is under way.
  void RequestTransition(const EncoderSettings& settings);
  // Reconfigures the primary on the caller's thread; frames wait meanwhile. A transition under way
  // is given up first: its older wish doesn't come back over this one.
  void ReconfigureInPlace(const EncoderSettings& settings);
  // Replaces the one consumer of the stream.
  void SetOutputCallback(EncodedFrameCallback callback);
  // Ends both workers and shuts all encoders down; after a clone under construction is complete.
  // Idempotent. The destructor runs it.
  void Stop();

  // "P1.1" runs a transition on a mock encoder and fails if it doesn't complete within 5 s; other
  // names go to the platform's encoder.
  static bool RunSelfTest(const std::string& name, std::string& result);

  bool Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps);
  bool Ready();
  // The primary's real values.
  int32_t GetEncoderWidth();
  int32_t GetEncoderHeight();
  int32_t GetEncoderFps();
  // A transition's destination from the moment it is requested, else the primary's real values.
  int32_t GetWidth();
  int32_t GetHeight();
  int32_t GetFps();
  uint32_t GetBitrate();
  int32_t GetGopSize();
  int32_t GetCodec();
  int32_t GetRateControl();
  uint32_t GetFrameByteCap();
  std::string GetDescription();
  void TriggerEmergencyCompression(int32_t frames);

  // These reach the primary and a pending clone.
  void RequestIdr();
  void SetCodec(int32_t codec);
  void SetGopSize(int32_t frames);
  void SetRateControl(int32_t mode, float quality);

 private:
  using EncoderPtr = std::shared_ptr<IHardwareEncoder>;

  enum class Mode : int32_t { Seamless = 0, Conservative = 1 };

  // Asks the primary under the lock held shared; `fallback` answers when there is none.
  template <typename Result, typename Question>
  Result Ask(Result fallback, Question question);
  // Applies a setter that can rebuild to the primary, alone, and to a pending clone.
  template <typename Change>
  void ChangeBoth(Change change);

  EncoderPtr Primary();
  EncoderPtr CountPendingFrame();
  bool SwapReady() VD_REQUIRES(pendingMutex_);
  void TrySwap();
  // Nothing if there is nothing to swap any more; else what was swapped out, perhaps null.
  std::optional<EncoderPtr> Swap(TransitionRecord& record);
  void InstallPrimaryCallback(IHardwareEncoder& encoder);
  void Forward(const IHardwareEncoder* from, const uint8_t* data, uint64_t size, bool keyFrame,
               uint64_t timestamp);

  // A wish for another encoder, on its way through the clone worker.
  struct Transition {
    EncoderSettings settings;
    uint64_t epoch = 0;  // when it was asked for
    int32_t fromWidth = 0;
    int32_t fromHeight = 0;
    int64_t startNanos = 0;
  };

  void CloneLoop();
  std::optional<Transition> NextRequest();
  void Serve(Transition transition);
  void LogBegin(const Transition& transition) const;
  void DropPending();
  std::unique_ptr<IHardwareEncoder> ClonePrimary(const EncoderSettings& settings);
  void AdoptClone(std::unique_ptr<IHardwareEncoder> clone, const Transition& transition);
  void WatchPending(int64_t startNanos);
  bool ReportPending(int64_t startNanos);
  void FallBack(const Transition& transition);
  void ClearBusy();

  bool TransitionUnderWay(const EncoderSettings& settings);
  // Does nothing if an epoch has begun since.
  void ReconfigurePrimary(const EncoderSettings& settings, uint64_t epoch);
  void SetTarget(int32_t width, int32_t height, int32_t fps);

  static void ShutDown(IHardwareEncoder& encoder);
  void RetireLoop();
  void EnqueueRetire(EncoderPtr encoder);
  void StopWorkers();

  double MillisSince(int64_t startNanos) const;

  Clock& clock_;

  Mutex pendingMutex_ VD_ACQUIRED_BEFORE(primaryLock_);
  SharedMutex primaryLock_;

  EncoderPtr primary_ VD_GUARDED_BY(primaryLock_);
  // For identity only: the encoder whose output may pass. Written under primaryLock_, read by
  // callbacks without it.
  std::atomic<const IHardwareEncoder*> forwardingEncoder_{nullptr};

  EncoderPtr pending_ VD_GUARDED_BY(pendingMutex_);
  bool pendingActive_ VD_GUARDED_BY(pendingMutex_) = false;
  int64_t transitionStartNanos_ VD_GUARDED_BY(pendingMutex_) = 0;
  int32_t pendingFramesFed_ VD_GUARDED_BY(pendingMutex_) = 0;
  EncoderSettings pendingSettings_ VD_GUARDED_BY(pendingMutex_);

  const Mode mode_ = Mode::Seamless;  // nothing chooses the other one yet

  Mutex outputMutex_;
  EncodedFrameCallback outputCallback_ VD_GUARDED_BY(outputMutex_);

  Mutex retireMutex_;
  CondVar retireChanged_;
  std::vector<EncoderPtr> retireQueue_ VD_GUARDED_BY(retireMutex_);
  bool retireDone_ VD_GUARDED_BY(retireMutex_) = false;  // the worker has left
  std::atomic<bool> retireStop_{false};

  Mutex requestMutex_;
  CondVar requestChanged_;
  EncoderSettings requestSettings_ VD_GUARDED_BY(requestMutex_);
  bool requestPending_ VD_GUARDED_BY(requestMutex_) = false;
  bool cloneBusy_ VD_GUARDED_BY(requestMutex_) = false;  // a request is being served: for debuggers
  std::atomic<bool> cloneStop_{false};
  // Begins anew with each ReconfigureInPlace: transitions of an older one are given up. Written
  // under requestMutex_.
  std::atomic<uint64_t> epoch_{0};

  // Where a transition is heading, 0 when there is none.
  std::atomic<int32_t> targetWidth_{0};
  std::atomic<int32_t> targetHeight_{0};
  std::atomic<int32_t> targetFps_{0};

  std::thread retireThread_;
  std::thread cloneThread_;
};

}  // namespace Veldrift
