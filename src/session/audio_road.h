// The sound of one instance: pushed by the host in blocks, or pulled from it by the clock thread
// during playback, which also drives the host's clock. Both roads end in datagrams.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <thread>
#include <vector>

#include "platform/mutex.h"
#include "session/host_interface.h"
#include "session/host_time_base.h"
#include "session/shared_transport.h"

namespace Veldrift {

// Threads: the host's thread calls everything public, but for SendAudioState, which also comes from
// the control read thread; the clock thread runs between StartClock and StopClock. Every change of
// state is an exchange, so that each running clock that was counted is taken back once, however the
// calls interleave.
class AudioRoad {
 public:
  // `running`: whether the instance is. `elapsedMicros`: its timeline, which sound and picture
  // share.
  AudioRoad(SharedTransport& transport, HostTimeBase& timeBase, std::function<bool()> running,
            std::function<int64_t()> elapsedMicros);

  void SetAudioFormat(float rate, uint32_t channels);
  void SetAudioOutputEnabled(bool enabled);
  // Tells the phone whether sound is being sent.
  void SendAudioState();
  void PushAudio(const Host::AudioBlock* block);
  // Pushing counts as playback unless the user scrubs.
  void UpdateAudioPushState(bool active, bool scrubbing);

  // Starts the clock thread, if the record says so and it doesn't run. Without a suite it drives
  // the clock only.
  void StartClock(const Host::ClockRecord& clock, int32_t playID, const Host::AudioSuite* suite);
  void StopClock();
  // Takes back what this instance has counted as a running clock.
  void StopCounting();

 private:
  struct Playback {
    Host::ClockRecord clock;
    const Host::AudioSuite* suite;
    int32_t playID;
    int64_t ticksPerSecond;
    int32_t fps;
  };

  void SendAudioSamples(const float* const* channels, uint32_t samples, uint32_t channelCount);
  void SendBlock(std::span<const std::byte> block);
  void StartCounting();
  void RunClock(const Playback& playback);
  bool WaitForTick(int64_t deadlineNanos);
  void NoticeSilence(int64_t sinceStartNanos);
  void PullAudio(const Playback& playback);
  uint32_t SamplesPerTick(const Playback& playback) const;
  Clock& GetClock() const { return transport_.GetClock(); }

  SharedTransport& transport_;
  HostTimeBase& timeBase_;
  const std::function<bool()> running_;
  const std::function<int64_t()> elapsedMicros_;

  std::atomic<uint32_t> audioSampleRate_{48'000};
  std::atomic<uint32_t> audioChannels_{2};
  std::atomic<bool> pushAudioActive_{false};
  std::atomic<bool> countedAsRunning_{false};
  std::atomic<bool> audioOutputEnabled_{true};
  std::atomic<bool> audioPushSeen_{false};

  std::atomic<bool> clockRunning_{false};
  std::thread clockThread_;
  Mutex clockMutex_;  // for the wait only
  CondVar clockCv_;
  std::vector<float> left_, right_;        // the clock thread's
  uint64_t pullFailures_ = 0, pulls_ = 0;  // the clock thread's
};

}  // namespace Veldrift
