#include "tools/view/sound_player.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace Veldrift {
namespace {

constexpr int64_t kSmallestGapMicros = 5'000;
constexpr int64_t kLargestGapMicros = 300'000;
constexpr int kFadeShare = 100;   // of a second: the length of a fade
constexpr int kMostStretch = 40;  // a block's length may change by the 40th part
constexpr double kSmoothing = 0.1;

int64_t FramesOf(int64_t nanos, int rate) { return nanos * rate / kNanosPerSecond; }

size_t Frames(const SoundBlock& block) { return block.samples.size() / size_t(block.channels); }

void FadeIn(SoundBlock& block) {
  const size_t length = std::min(Frames(block), size_t(block.rate / kFadeShare / 4));
  for (size_t i = 0; i < length * size_t(block.channels); ++i) {
    block.samples[i] *= float(i / size_t(block.channels)) / float(length);
  }
}

void LeaveOut(SoundBlock& block, int64_t frames) {
  const size_t count = std::min(Frames(block), size_t(frames)) * size_t(block.channels);
  block.samples.erase(block.samples.begin(), block.samples.begin() + ptrdiff_t(count));
}

// The same sound in `frames` more, or less.
void Stretch(SoundBlock& block, int64_t frames) {
  const auto channels = size_t(block.channels);
  const size_t before = Frames(block), after = size_t(int64_t(before) + frames);
  if (frames == 0 || before < 2 || after < 2) return;
  std::vector<float> samples(after * channels);
  for (size_t i = 0; i < after; ++i) {
    const double at = double(i) * double(before - 1) / double(after - 1);
    const size_t left = std::min(size_t(at), before - 2);
    const auto share = float(at - double(left));
    for (size_t c = 0; c < channels; ++c) {
      const float* const from = &block.samples[left * channels + c];
      samples[i * channels + c] = from[0] + (from[channels] - from[0]) * share;
    }
  }
  block.samples = std::move(samples);
}

std::vector<float> TailOf(const SoundBlock& block) {
  const auto channels = size_t(block.channels);
  const size_t length = std::min(Frames(block), size_t(block.rate / kFadeShare));
  std::vector<float> tail;
  for (size_t i = 0; i < length; ++i) {
    const size_t from = (Frames(block) - 1 - i) * channels;
    for (size_t c = 0; c < channels; ++c) tail.push_back(block.samples[from + c]);
  }
  return tail;
}

}  // namespace

void SoundPlayer::Send(const SoundBlock& block) {
  output_.Queue(block.samples, block.rate, block.channels);
}

void SoundPlayer::Silence(const SoundBlock& block, int64_t nanos) {
  const auto frames = size_t(FramesOf(nanos, block.rate));
  output_.Queue(std::vector<float>(frames * size_t(block.channels)), block.rate, block.channels);
}

// What was heard last, backwards and fading, and then nothing.
void SoundPlayer::ConcealGap(const SoundBlock& block) {
  const int64_t gapMicros = block.timeMicros - *endMicros_;
  const auto frames = size_t(FramesOf(gapMicros * kNanosPerMicro, block.rate));
  std::vector<float> filling(frames * size_t(block.channels));
  const auto channels = size_t(block.channels);
  const size_t length = std::min(filling.size(), tail_.size()) / channels;
  for (size_t i = 0; i < length * channels; ++i) {
    filling[i] = tail_[i] * (1 - float(i / channels) / float(length));
  }
  output_.Queue(filling, block.rate, block.channels);
}

void SoundPlayer::Play(SoundBlock block, int64_t dueNs, int64_t nowNs) {
  if (block.samples.empty()) return;
  const int64_t lengthMicros = int64_t(Frames(block)) * 1'000'000 / block.rate;
  std::vector<float> tail = TailOf(block);
  const int64_t gapMicros = endMicros_ ? block.timeMicros - *endMicros_ : 0;
  if (gapMicros > kSmallestGapMicros && gapMicros < kLargestGapMicros && output_.QueuedNs() > 0) {
    ConcealGap(block);
    FadeIn(block);
  }
  const int64_t queuedNs = output_.QueuedNs();
  const int64_t errorNs = dueNs - (nowNs + queuedNs + SoundOutput::kDeviceNs);
  if (queuedNs == 0 || std::abs(errorNs) > kToleratedNs) {
    errorNs_ = 0;
    if (errorNs > 0) Silence(block, std::min(errorNs, kNanosPerSecond));
    if (errorNs < -kToleratedNs) LeaveOut(block, FramesOf(-errorNs, block.rate));
    FadeIn(block);
  } else {
    errorNs_ += (double(errorNs) - errorNs_) * kSmoothing;
    const int64_t most = int64_t(Frames(block)) / kMostStretch;
    // A tenth of the way at a time.
    Stretch(block, std::clamp(FramesOf(int64_t(errorNs_ / 10), block.rate), -most, most));
  }
  Send(block);
  endMicros_ = block.timeMicros + lengthMicros;
  tail_ = std::move(tail);
}

}  // namespace Veldrift
