#include "session/audio_path.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "net/control_protocol.h"
#include "net/media_datagram.h"
#include "support/plugin_log.h"

namespace Veldrift {

namespace {

constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr float kFallbackRate = 48'000;
constexpr float kHighestRate = 4e9F;
constexpr uint32_t kFallbackChannels = 2;
constexpr uint32_t kPulledChannels = 2;
constexpr int64_t kSilenceNanos = 1'501'000'000;
constexpr int64_t kMostOwedNanos = 10 * kNanosPerSecond;
constexpr uint64_t kLogEvery = 200;
constexpr uint64_t kLogFailureEvery = 100;

std::atomic<uint64_t> pushCalls{0};

// The head, then all channels of sample 0, of sample 1, and so on; a missing channel is silent.
std::vector<std::byte> MakeAudioBlock(const AudioBlockHead& head, const float* const* channels,
                                      uint32_t samples) {
  std::vector<std::byte> block(kAudioHeadBytes + size_t{samples} * head.channels * sizeof(float));
  WriteAudioHead(head, block.data());
  std::byte* out = block.data() + kAudioHeadBytes;
  for (uint32_t channel = 0; channel < head.channels; ++channel) {
    const float* const in = channels[channel];
    if (in == nullptr) continue;
    for (uint32_t sample = 0; sample < samples; ++sample) {
      std::memcpy(out + (size_t{sample} * head.channels + channel) * sizeof(float), in + sample,
                  sizeof(float));
    }
  }
  return block;
}

}  // namespace

// Asks the host's suite, tick by tick, for the samples that have become due: as many as the time
// that has passed is worth, to the sample, so that the content never falls behind the picture.
class AudioPath::Puller final : public IClockListener {
 public:
  Puller(AudioPath& path, const Host::AudioSuite* suite, int32_t playID)
      : path_(path), suite_(suite), playID_(playID) {}

  void OnStart() override { path_.audioPushSeen_ = false; }

  void OnTick(const ClockTick& tick) override {
    if (tick.playedNanos >= kSilenceNanos) path_.NoticeSilence();
    if (suite_ == nullptr || playID_ == 0) return;
    if (path_.pushAudioActive_) {
      owed_ = 0;  // the host hands out this time's sound by itself
      return;
    }
    Pull(tick, path_.audioSampleRate_);
  }

 private:
  void Pull(const ClockTick& tick, uint32_t rate) {
    owed_ += std::min(tick.elapsedNanos, kMostOwedNanos) * rate;
    owed_ = std::min(owed_, kMostOwedNanos * rate);
    const auto samples = uint32_t(owed_ / kNanosPerSecond);
    if (samples == 0) return;
    if (left_.size() < samples) left_.resize(samples);
    if (right_.size() < samples) right_.resize(samples);
    std::array<float*, kPulledChannels> buffers{left_.data(), right_.data()};
    const Host::Error result = suite_->GetNextAudioBuffer(playID_, 0, buffers.data(), samples);
    if (result < 0) {
      if (failures_++ % kLogFailureEvery == 0) {
        PluginLog(kLog, kLogDebug, "[dx] GetNextAudioBuffer err=0x%08x (want=%u playID=%d)",
                  unsigned(result), samples, playID_);
      }
      return;  // owed until the host has it
    }
    owed_ -= int64_t{samples} * kNanosPerSecond;
    // Their time has passed; the first of them was due when the last tick's ended. How long the
    // host takes to answer moves none of them.
    const int64_t lasts = int64_t{samples} * (kNanosPerSecond / kNanosPerMicro) / rate;
    path_.SendAudioSamples(buffers.data(), samples, kPulledChannels,
                           std::max<int64_t>(path_.state_.MicrosAt(tick.nowNanos) - lasts, 0));
    const uint64_t pull = pulls_++;
    if (pull % kLogEvery == 0) {
      PluginLog(kLog, kLogDebug, "[dx] pull audio #%llu: samples=%u rate=%u",
                static_cast<unsigned long long>(pull), samples, rate);
    }
  }

  AudioPath& path_;
  const Host::AudioSuite* const suite_;
  const int32_t playID_;
  int64_t owed_ = 0;  // in samples times 10^9: what is less than a sample stays for the next tick
  std::vector<float> left_, right_;
  uint64_t failures_ = 0, pulls_ = 0;
};

void AudioPath::SetAudioFormat(float rate, uint32_t channels) {
  audioSampleRate_ = uint32_t(rate > 0 && rate <= kHighestRate ? rate : kFallbackRate);
  PluginLog(kLog, kLogInfo, "SetAudioFormat rate=%u ch=%u", audioSampleRate_.load(),
            channels != 0 ? channels : kFallbackChannels);
}

void AudioPath::PushAudio(const Host::AudioBlock* block) {
  const uint64_t call = pushCalls++;
  if (call % kLogEvery == 0) {
    PluginLog(kLog, kLogDebug, "[dx] PushAudio #%llu: samples=%u ch=%u",
              static_cast<unsigned long long>(call), block ? block->sampleCount : 0,
              block ? block->channelCount : 0);
  }
  if (block == nullptr) return;
  SendAudioSamples(block->buffers, block->sampleCount, block->channelCount, state_.ElapsedMicros());
}

std::unique_ptr<IClockListener> AudioPath::MakePuller(const Host::AudioSuite* suite,
                                                      int32_t playID) {
  return std::make_unique<Puller>(*this, suite, playID);
}

void AudioPath::SendAudioSamples(const float* const* channels, uint32_t samples,
                                 uint32_t channelCount, int64_t timestamp) {
  if (channels == nullptr || samples == 0 || channelCount == 0 || channelCount > UINT8_MAX) return;
  // Sound that comes without a phone has been seen all the same.
  audioPushSeen_ = true;
  SetAudioOutputEnabled(true);
  if (!state_.running || !transport_.PeerKnown()) return;
  const AudioBlockHead head{audioSampleRate_, uint8_t(channelCount)};
  transport_.Sender().SendSound(MakeAudioBlock(head, channels, samples), uint64_t(timestamp));
}

// ---- What the phone is told of it --------------------------------------------------------------

void AudioPath::SetAudioOutputEnabled(bool enabled) {
  MutexLock lock(audioStateMutex_);
  SwitchAudioOutput(enabled);
}

// A host that sends no sound is told to the phone once; the first sound turns it back on.
void AudioPath::NoticeSilence() {
  MutexLock lock(audioStateMutex_);
  if (!audioPushSeen_) SwitchAudioOutput(false);
}

void AudioPath::SwitchAudioOutput(bool enabled) {
  if (audioOutputEnabled_ == enabled) return;
  audioOutputEnabled_ = enabled;
  PluginLog(kLog, kLogInfo, "SetAudioOutputEnabled: %d", enabled ? 1 : 0);
  TellAudioState();
}

void AudioPath::SendAudioState() {
  MutexLock lock(audioStateMutex_);
  TellAudioState();
}

void AudioPath::TellAudioState() {
  const int enabled = audioOutputEnabled_ ? 1 : 0;
  if (transport_.SendControlByte(kAudioState, uint8_t(enabled))) {
    PluginLog(kLog, kLogInfo, "SendControl: kAudioState enabled=%d", enabled);
  }
}

}  // namespace Veldrift
