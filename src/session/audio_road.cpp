#include "session/audio_road.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "net/control_protocol.h"
#include "net/framing.h"
#include "support/guarded.h"
#include "support/plugin_log.h"

namespace Veldrift {

namespace {

constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr float kFallbackRate = 48'000;
constexpr float kHighestRate = 4e9F;
constexpr double kMostSamplesPerTick = 1e6;
constexpr uint32_t kFallbackChannels = 2;
constexpr int32_t kLowestFps = 1;
constexpr int32_t kHighestFps = 240;
constexpr int64_t kSilenceNanos = 1'501'000'000;
constexpr uint64_t kLogEvery = 200;
constexpr uint64_t kLogFailureEvery = 100;
constexpr uint32_t kPulledChannels = 2;

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

AudioRoad::AudioRoad(SharedTransport& transport, HostTimeBase& timeBase,
                     std::function<bool()> running, std::function<int64_t()> elapsedMicros)
    : transport_(transport),
      timeBase_(timeBase),
      running_(std::move(running)),
      elapsedMicros_(std::move(elapsedMicros)) {}

void AudioRoad::SetAudioFormat(float rate, uint32_t channels) {
  audioSampleRate_ = uint32_t(rate > 0 && rate <= kHighestRate ? rate : kFallbackRate);
  audioChannels_ = channels != 0 ? channels : kFallbackChannels;
  PluginLog(kLog, kLogInfo, "SetAudioFormat rate=%u ch=%u", audioSampleRate_.load(),
            audioChannels_.load());
}

void AudioRoad::SetAudioOutputEnabled(bool enabled) {
  if (audioOutputEnabled_.exchange(enabled) == enabled) return;
  PluginLog(kLog, kLogInfo, "SetAudioOutputEnabled: %d", enabled ? 1 : 0);
  SendAudioState();
}

void AudioRoad::SendAudioState() {
  const int enabled = audioOutputEnabled_ ? 1 : 0;
  if (transport_.SendControlByte(kAudioState, uint8_t(enabled))) {
    PluginLog(kLog, kLogInfo, "SendControl: kAudioState enabled=%d", enabled);
  }
}

void AudioRoad::PushAudio(const Host::AudioBlock* block) {
  const uint64_t call = pushCalls++;
  if (call % kLogEvery == 0) {
    PluginLog(kLog, kLogDebug, "[dx] PushAudio #%llu: samples=%u ch=%u",
              static_cast<unsigned long long>(call), block ? block->sampleCount : 0,
              block ? block->channelCount : 0);
  }
  if (block != nullptr) SendAudioSamples(block->buffers, block->sampleCount, block->channelCount);
}

void AudioRoad::SendAudioSamples(const float* const* channels, uint32_t samples,
                                 uint32_t channelCount) {
  if (channels == nullptr || samples == 0 || channelCount == 0) return;
  audioPushSeen_ = true;
  SetAudioOutputEnabled(true);
  if (channelCount > UINT8_MAX) return;  // the block's head can't say it
  if (!running_() || !transport_.PeerKnown()) return;
  const AudioBlockHead head{audioSampleRate_, uint8_t(channelCount)};
  const std::vector<std::byte> block = MakeAudioBlock(head, channels, samples);
  for (size_t at = 0; at < block.size(); at += kMaxFrameBytes) {
    SendBlock(std::span(block).subspan(at, std::min(kMaxFrameBytes, block.size() - at)));
  }
}

void AudioRoad::SendBlock(std::span<const std::byte> block) {
  const size_t datagrams = CountDatagrams(block.size(), 0);
  if (datagrams == 0) return;
  FrameToSend frame;
  frame.streamType = StreamType::Audio;
  frame.frameNumber = transport_.audio.frameNumber++;
  uint32_t sequence = transport_.audio.sequence.fetch_add(uint32_t(datagrams));
  frame.timestamp = uint32_t(elapsedMicros_());
  frame.data = block;
  FrameGroup group = MakeFrameGroup(frame);
  if (!FragmentFrame(frame, sequence, GetClock().NowNanos(), group)) return;
  transport_.GetPacer().Enqueue(std::move(group));
}

void AudioRoad::UpdateAudioPushState(bool active, bool scrubbing) {
  pushAudioActive_ = active;
  if (active && !scrubbing) {
    StartCounting();
  } else {
    StopCounting();
  }
}

void AudioRoad::StartCounting() {
  if (!countedAsRunning_.exchange(true)) transport_.AdjustRunningClocks(+1);
}

void AudioRoad::StopCounting() {
  if (countedAsRunning_.exchange(false)) transport_.AdjustRunningClocks(-1);
}

// ---- The clock thread --------------------------------------------------------------------------

void AudioRoad::StartClock(const Host::ClockRecord& clock, int32_t playID,
                           const Host::AudioSuite* suite) {
  if (clock.mode != Host::kPlayModePlaying || clock.callback == nullptr) return;
  if (clockRunning_.exchange(true)) return;
  StartCounting();
  const Playback playback{clock, suite, playID, timeBase_.TicksPerSecond(),
                          std::clamp(timeBase_.Fps(), kLowestFps, kHighestFps)};
  PluginLog(kLog, kLogInfo, "StartClock: fps=%d ticksPerSecond=%lld playID=%d audioSuite=%p",
            playback.fps, static_cast<long long>(playback.ticksPerSecond), playID,
            static_cast<const void*>(suite));
  audioPushSeen_ = false;
  clockThread_ = std::thread(
      [this, playback] { RunGuarded(kLog, "audio clock", [&] { RunClock(playback); }); });
}

void AudioRoad::StopClock() {
  if (!clockRunning_.exchange(false)) return;
  StopCounting();
  { MutexLock lock(clockMutex_); }
  clockCv_.NotifyAll();
  clockThread_.join();
  PluginLog(kLog, kLogInfo, "StopClock");
}

void AudioRoad::RunClock(const Playback& playback) {
  const int64_t framePeriod = kNanosPerSecond / playback.fps;
  const int64_t start = GetClock().NowNanos();
  int64_t previous = start;
  while (WaitForTick(GetClock().NowNanos() + framePeriod)) {
    const int64_t now = GetClock().NowNanos();
    const double ticks = double(playback.ticksPerSecond) * double(now - previous) / 1e9;
    previous = now;
    playback.clock.callback(playback.clock.callbackData, int64_t(ticks));
    NoticeSilence(now - start);
    if (playback.suite != nullptr && playback.playID != 0) PullAudio(playback);
  }
}

bool AudioRoad::WaitForTick(int64_t deadlineNanos) {
  MutexLock lock(clockMutex_);
  while (clockRunning_ && GetClock().NowNanos() < deadlineNanos) {
    GetClock().WaitUntil(clockCv_, lock, deadlineNanos);
  }
  return clockRunning_;
}

// A host that sends no sound is told to the phone once; the first sound turns it back on.
void AudioRoad::NoticeSilence(int64_t sinceStartNanos) {
  if (!audioPushSeen_ && sinceStartNanos >= kSilenceNanos) SetAudioOutputEnabled(false);
}

uint32_t AudioRoad::SamplesPerTick(const Playback& playback) const {
  const uint32_t rate = audioSampleRate_;
  const int64_t ticksPerFrame = timeBase_.TicksPerFrame();
  if (ticksPerFrame > 0 && playback.ticksPerSecond > 0) {
    const double samples = double(ticksPerFrame) * rate / double(playback.ticksPerSecond);
    return uint32_t(std::min(samples, kMostSamplesPerTick));
  }
  return rate / uint32_t(playback.fps);
}

void AudioRoad::PullAudio(const Playback& playback) {
  const uint32_t samples = SamplesPerTick(playback);
  if (samples == 0) return;
  if (left_.size() < samples) left_.resize(samples);
  if (right_.size() < samples) right_.resize(samples);
  float* buffers[kPulledChannels] = {left_.data(), right_.data()};
  const Host::Error result =
      playback.suite->GetNextAudioBuffer(playback.playID, 0, buffers, samples);
  if (result < 0) {
    if (pullFailures_++ % kLogFailureEvery == 0) {
      PluginLog(kLog, kLogDebug, "[dx] GetNextAudioBuffer err=0x%08x (want=%u playID=%d)",
                unsigned(result), samples, playback.playID);
    }
    return;
  }
  SendAudioSamples(buffers, samples, kPulledChannels);
  const uint64_t pull = pulls_++;
  if (pull % kLogEvery == 0) {
    PluginLog(kLog, kLogDebug, "[dx] pull audio #%llu: samples=%u rate=%u",
              static_cast<unsigned long long>(pull), samples, audioSampleRate_.load());
  }
}

}  // namespace Veldrift
