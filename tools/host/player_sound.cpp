// A player's sound: pushed from a thread of its own, or handed out when the module asks.
#include <algorithm>
#include <utility>
#include <vector>

#include "fault_book.h"
#include "player.h"
#include "support/clock.h"

namespace Veldrift {

namespace {

// One pull may have begun before the host began to push.
constexpr uint64_t kToleratedPulls = 1;
constexpr int64_t kLongestWaitNs = 50 * kNanosPerMilli;
constexpr int64_t kShortestWaitNs = 100 * kNanosPerMicro;

}  // namespace

// ---- Pulled ------------------------------------------------------------------------------------

// Exactly what comes next, whatever the clock says: a lag of the module's is to be heard.
bool Player::Pull(float* const* channels, uint32_t samples) {
  {
    const MutexLock lock(mutex_);
    if (pushesSound_) ++pulledWhilePushing_;
    if (playhead_.Speed() != 1) return false;
    if (ways_.road == SoundRoad::Pull) counters_.samplesPulled += samples;
  }
  if (ways_.road == SoundRoad::Push) {
    std::fill_n(channels[0], samples, 0.0F);
    std::fill_n(channels[1], samples, 0.0F);
    return true;
  }
  const MutexLock lock(soundMutex_);
  sound_->Next(channels, samples);
  return true;
}

// ---- Pushed ------------------------------------------------------------------------------------

int64_t Player::SampleAt(int64_t nowNs) const {
  return int64_t(double(playhead_.PositionAt(nowNs)) * sound_->Format().sampleRate /
                 double(kTicksPerSecond));
}

int64_t Player::SampleNow() const {
  const MutexLock lock(mutex_);
  return SampleAt(SteadyNanos());
}

void Player::SoundGoesTo(int64_t sample) {
  const MutexLock lock(soundMutex_);
  sound_->GoTo(sample);
}

void Player::RunSound() {
  if (sound_ == nullptr || ways_.road != SoundRoad::Push) return;
  while (true) {
    switch (NextSoundTask()) {
      case SoundTask::End:
        return;
      case SoundTask::Push:
        PushSound();
        break;
      case SoundTask::Scrub:
        PushScrubbing();
        break;
    }
  }
}

Player::SoundTask Player::NextSoundTask() {
  MutexLock lock(mutex_);
  while (!ending_) {
    if (std::exchange(wantsScrubbing_, false)) return SoundTask::Scrub;
    if (playhead_.Speed() == 1 && table_.TakesPushedSound()) return SoundTask::Push;
    changed_.Wait(lock);
  }
  return SoundTask::End;
}

// From now until the playhead jumps, stands or changes its speed.
void Player::PushSound() {
  samplesPerBlock_ = table_.StartPushAudio(record_, false);
  int64_t sample = 0;
  uint32_t play = 0;
  {
    const MutexLock lock(mutex_);
    play = play_;
    sample = SampleAt(SteadyNanos());
    pushesSound_ = true;
    pulledWhilePushing_ = 0;
  }
  SoundGoesTo(sample);
  for (; AwaitSample(sample, play); sample += samplesPerBlock_) PushBlock(samplesPerBlock_);
  {
    const MutexLock lock(mutex_);
    pushesSound_ = false;
    if (pulledWhilePushing_ > kToleratedPulls) {
      FaultBook::Instance().Note("pulled sound while the host pushed it");
    }
  }
  table_.StopPushAudio(record_);
}

// Until the sample is due; false when it isn't wanted any more.
bool Player::AwaitSample(int64_t sample, uint32_t play) {
  const int rate = sound_->Format().sampleRate;
  MutexLock lock(mutex_);
  while (!ending_ && play == play_ && playhead_.Speed() == 1) {
    const int64_t nowNs = SteadyNanos();
    const int64_t missing = sample - SampleAt(nowNs);
    if (missing <= 0 && samplesPerBlock_ > 0) return true;
    const int64_t waitNs = missing * kNanosPerSecond / rate;
    SystemClock().WaitUntil(changed_, lock,
                            nowNs + std::clamp(waitNs, kShortestWaitNs, kLongestWaitNs));
  }
  return false;
}

// A frame's worth of the sound under the playhead, as a step lets it be heard.
void Player::PushScrubbing() {
  uint32_t left = 0;
  {
    const MutexLock lock(mutex_);
    left = uint32_t(double(playhead_.TicksPerFrame()) * sound_->Format().sampleRate /
                    double(kTicksPerSecond));
  }
  SoundGoesTo(SampleNow());
  const uint32_t block = table_.StartPushAudio(record_, true);
  while (block > 0 && left > 0) {
    const uint32_t now = std::min(block, left);
    PushBlock(now);
    left -= now;
  }
  table_.StopPushAudio(record_);
}

void Player::PushBlock(uint32_t samples) {
  const HostSoundFormat format = sound_->Format();
  std::vector<std::vector<float>> planes(size_t(format.channels), std::vector<float>(samples));
  std::vector<float*> buffers;
  for (auto& plane : planes) buffers.push_back(plane.data());
  {
    const MutexLock lock(soundMutex_);
    sound_->Next(buffers.data(), samples);
  }
  const Host::AudioBlock block{buffers.data(), samples, uint32_t(format.channels)};
  table_.PushAudio(record_, block);
  const MutexLock lock(mutex_);
  ++counters_.soundBlocks;
}

}  // namespace Veldrift
