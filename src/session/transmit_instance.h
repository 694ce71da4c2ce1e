// The session: the host makes one for each of its transmit instances. Frames and sound come in on
// the host's threads, commands on the control read thread, encoded frames on the encoder's.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include "encoder/encoder_pipeline.h"
#include "platform/mutex.h"
#include "session/audio_road.h"
#include "session/frame_cache.h"
#include "session/frame_geometry.h"
#include "session/host_interface.h"
#include "session/host_time_base.h"
#include "session/session_services.h"
#include "session/stall_watch.h"
#include "session/stream_announcer.h"
#include "session/stress_driver.h"

// Dormant (no encoder to be had: HasPipeline is false, and the owner destroys it at once), stopped
// (frames are disposed of unread) or running. Even then frames are disposed of unread while no
// phone has paired, so the encoder isn't configured before the first one.
//
// Threads: construction, destruction, Start, Stop, the setters and the pushes come from the host;
// HandleControlCommand, OnNewClient and OnUdpFailures from the transport's threads, under its
// instance lock (but for the replay of remembered settings, on the host's thread); OnEncodedFrame
// from the encoder's output thread. The pipeline is only swapped under pipelineLock_, and everybody
// works on a reference of their own.
class TransmitInstance {
 public:
  TransmitInstance(const Veldrift::Host::SuiteAccess* hostServices, SessionServices services);
  ~TransmitInstance();
  TransmitInstance(const TransmitInstance&) = delete;
  TransmitInstance& operator=(const TransmitInstance&) = delete;

  bool HasPipeline() const { return Pipeline() != nullptr; }
  bool IsRunning() const { return running_; }
  void Start();
  void Stop();

  // Shows the first frame of the list, and disposes of all of them. Null does nothing.
  void PushVideo(const Veldrift::Host::FrameList* frames);
  // From the host's ticks; without a sensible answer of the host the rate stays as it is.
  void SetVideoFrameRate(int64_t ticksPerFrame) { timeBase_.SetVideoFrameRate(ticksPerFrame); }
  void StartClock(const Veldrift::Host::ClockRecord& clock, int32_t playID);
  Veldrift::AudioRoad& Audio() { return audio_; }

  void HandleControlCommand(uint8_t opcode, std::span<const std::byte> payload);
  void OnNewClient();
  void OnUdpFailures();

  // "P3" races writers, readers and resetters of what an instance announces and caches, on a copy
  // of that state, for 150 ms; false if a cached frame was ever torn. `result` describes it.
  static bool RunSelfTest(const std::string& id, std::string& result);

  // One access unit from the encoder, `timestamp` in microseconds since the instance's creation.
  void OnEncodedFrame(const uint8_t* data, uint64_t size, bool keyFrame, uint64_t timestamp);

 private:
  using PipelineReference = std::shared_ptr<Veldrift::EncoderPipeline>;

  Veldrift::Clock& GetClock() const { return services_.transport.GetClock(); }
  PipelineReference Pipeline() const VD_EXCLUDES(pipelineLock_);
  void InstallEncoderCallback(Veldrift::EncoderPipeline& pipeline);
  int64_t ElapsedMicros() const;

  void AcquireSuites();
  void ReleaseSuites();
  void FullStop();

  void ShowFrame(Veldrift::Host::FrameHandle frame);
  bool FormatIsGood(uint32_t format);
  void Transmit(const uint8_t* pixels, Veldrift::FrameSize size, int32_t rowBytes);
  void FitEncoder(Veldrift::EncoderPipeline& pipeline, bool ready, Veldrift::FrameSize target,
                  const Veldrift::FrameGeometry& source);
  void WatchForStall(Veldrift::EncoderPipeline& pipeline, Veldrift::FrameSize target, int32_t fps);
  void OnWireOverrun(uint64_t size, size_t fragments);

  void RunCommand(uint8_t opcode, std::span<const std::byte> payload);
  void SetGopMode(uint8_t mode);
  void SetCodec(uint8_t codec);
  void SetMaxResolution(uint16_t shortSideCap);
  void SetEncoderMode(uint8_t mode, uint8_t quality);
  void SetEncoderEngine(std::span<const std::byte> payload);
  void ApplySettingsSnapshot(std::span<const std::byte> payload);
  void ObeyTestMarker(std::span<const std::byte> payload);
  void SwitchEncoderEngine(const std::string& id);
  std::unique_ptr<Veldrift::IHardwareEncoder> CreateEncoderFor(const std::string& id);
  void SendEncoderEngineList();
  void SendHostPlatform();
  void ReplayCachedFrame();
  void NudgeHost();
  void PublishEncoderStatus();
  void RequestIdr();

  const Veldrift::Host::SuiteAccess* const hostServices_;
  SessionServices services_;
  Veldrift::HostTimeBase timeBase_;
  Veldrift::AudioRoad audio_;
  const Veldrift::Host::PpixSuite* ppixSuite_ = nullptr;
  const Veldrift::Host::AudioSuite* audioSuite_ = nullptr;

  mutable Veldrift::SharedMutex pipelineLock_;
  PipelineReference pipeline_ VD_GUARDED_BY(pipelineLock_);

  std::atomic<bool> running_{false};
  int64_t epochNanos_ = 0;  // steady clock at creation: the origin of all time stamps

  std::atomic<int32_t> shortSideCap_{0};  // pixels, 0: no limit
  std::atomic<uint8_t> legacyEngineByte_{0};
  std::atomic<uint32_t> encoderMode_{0};
  std::string engineId_ = "auto";  // as it came; the transport's instance lock guards it

  Veldrift::StreamAnnouncer announcer_;
  Veldrift::FrameCache frameCache_;
  Veldrift::StallWatch stallWatch_;
  Veldrift::StressDriver stressDriver_;
  uint32_t lastBadPixelFormat_ = 0;  // the host's thread's
};
