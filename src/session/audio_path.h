// The sound of one instance: pushed by the host in blocks, or pulled from it as its clock advances.
// Both ways end in datagrams.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/mutex.h"
#include "session/host_clock.h"
#include "session/host_interface.h"
#include "session/session_state.h"
#include "session/shared_transport.h"

namespace Veldrift {

// Threads: the host's threads push; a playback's clock pulls; the control read thread asks for
// SendAudioState.
class AudioPath {
 public:
  AudioPath(SharedTransport& transport, const SessionState& state)
      : transport_(transport), state_(state) {}

  // A rate that isn't above 0 becomes 48,000 Hz, no channels two.
  void SetAudioFormat(float rate, uint32_t channels);

  void PushAudio(const Host::AudioBlock* block);
  // The host pushes from now on, or no longer: while it does, nothing is pulled.
  void SetPushing(bool pushing) { pushAudioActive_ = pushing; }

  // What pulls from `suite`, on the clock of the playback that begins now. Null suite or playID 0:
  // nothing is pulled, but silence is noticed all the same.
  std::unique_ptr<IClockListener> MakePuller(const Host::AudioSuite* suite, int32_t playID);

  // Tells the phone whether sound is being sent.
  void SendAudioState();

 private:
  class Puller;

  // `timestamp` of the first sample. Null or empty arguments, or more channels than a block's head
  // can say, do nothing.
  void SendAudioSamples(const float* const* channels, uint32_t samples, uint32_t channelCount,
                        int64_t timestamp);
  void SetAudioOutputEnabled(bool enabled) VD_EXCLUDES(audioStateMutex_);
  void SwitchAudioOutput(bool enabled) VD_REQUIRES(audioStateMutex_);
  void TellAudioState() VD_REQUIRES(audioStateMutex_);
  void NoticeSilence() VD_EXCLUDES(audioStateMutex_);

  SharedTransport& transport_;
  const SessionState& state_;

  std::atomic<uint32_t> audioSampleRate_{48'000};
  std::atomic<bool> pushAudioActive_{false};
  std::atomic<bool> audioPushSeen_{false};  // since the clock started

  // Decided and told in one step, so that two threads can't leave the phone with the wrong state.
  Mutex audioStateMutex_;
  bool audioOutputEnabled_ VD_GUARDED_BY(audioStateMutex_) = true;
};

}  // namespace Veldrift
