// The session: the host makes one for each of its transmit instances. What it does stands in its
// parts; here they are put together, started, stopped, and greet a phone.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "session/audio_path.h"
#include "session/engine_switch.h"
#include "session/host_clock.h"
#include "session/host_interface.h"
#include "session/host_suites.h"
#include "session/phone_commands.h"
#include "session/pipeline_seat.h"
#include "session/playback_claim.h"
#include "session/session_instance.h"
#include "session/session_services.h"
#include "session/session_state.h"
#include "session/stream_announcer.h"
#include "session/stress_driver.h"
#include "session/video_path.h"

// Dormant (no encoder to be had: HasPipeline is false, and the owner destroys it at once), stopped
// (frames are disposed of unread) or running. Even then frames are disposed of unread while no
// phone has paired, so the encoder isn't configured before the first one.
//
// Threads: construction, destruction, Start, Stop, the setters and the pushes come from the host's
// threads; what ISessionInstance has, from the transport's; OnEncodedFrame from the encoder's.
class TransmitInstance final : public ISessionInstance {
 public:
  TransmitInstance(const Veldrift::Host::SuiteAccess* hostServices, SessionServices services);
  ~TransmitInstance() override;
  TransmitInstance(const TransmitInstance&) = delete;
  TransmitInstance& operator=(const TransmitInstance&) = delete;

  bool HasPipeline() const { return seat_.Current() != nullptr; }
  bool IsRunning() const { return state_.running; }
  void Start();
  void Stop();

  // From the host's ticks; without a sensible answer of the host the rate stays as it is.
  void SetVideoFrameRate(int64_t ticksPerFrame) { suites_.SetVideoFrameRate(ticksPerFrame); }
  void PushVideo(const Veldrift::Host::FrameList* frames) { video_.PushVideo(frames); }

  void SetAudioFormat(float rate, uint32_t channels) { audio_.SetAudioFormat(rate, channels); }
  void PushAudio(const Veldrift::Host::AudioBlock* block) { audio_.PushAudio(block); }
  // Pushing counts as playback unless the user scrubs.
  void UpdateAudioPushState(bool active, bool scrubbing);

  // Does nothing for a record that asks for no playback, or while the clock runs. False if the
  // clock couldn't be started.
  bool StartClock(const Veldrift::Host::ClockRecord& clock, int32_t playID);
  void StopClock() { clock_.Stop(); }

  void HandleControlCommand(uint8_t opcode, std::span<const std::byte> payload) override {
    commands_.HandleControlCommand(opcode, payload);
  }
  void OnNewClient() override;
  void OnUdpFailures() override;

  // One access unit from the encoder, `timestamp` in microseconds since the instance's creation.
  void OnEncodedFrame(const uint8_t* data, uint64_t size, bool keyFrame, uint64_t timestamp) {
    video_.OnEncodedFrame(data, size, keyFrame, timestamp);
  }

  // The built-in test "P3"; false if it failed. `result` describes it.
  static bool RunSelfTest(const std::string& id, std::string& result);

 private:
  void FullStop();
  void SendHostPlatform();

  // In the order in which they stand on each other; the threads that call into them end in
  // FullStop.
  const SessionServices services_;
  Veldrift::SessionState state_;
  Veldrift::HostSuites suites_;
  Veldrift::PipelineSeat seat_;
  Veldrift::StreamAnnouncer announcer_;
  Veldrift::VideoPath video_;
  Veldrift::AudioPath audio_;
  Veldrift::PlaybackClaim playbackClaim_;
  Veldrift::HostClock clock_;
  Veldrift::EngineSwitch engineSwitch_;
  Veldrift::PhoneCommands commands_;
  Veldrift::StressDriver stressDriver_;
};
