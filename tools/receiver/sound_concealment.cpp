#include "tools/receiver/sound_concealment.h"

#include <algorithm>
#include <cstring>

#include "net/framing.h"

namespace Veldrift {

namespace {

// Samples, interleaved, and the gap's places in them.
void FillGap(std::vector<float>& samples, size_t begin, size_t end, size_t channels) {
  const size_t count = (end - begin) / channels;  // of each channel
  for (size_t i = 0; i < count; ++i) {
    const float place = (float(i) + 1) / (float(count) + 1);
    for (size_t channel = 0; channel < channels; ++channel) {
      const size_t back = (i + 1) * channels - channel;  // from the gap's begin
      const size_t ahead = (count - 1 - i) * channels + channel;
      const bool hasBefore = back <= begin;
      const bool hasAfter = end + ahead < samples.size();
      const float before = hasBefore ? samples[begin - back] : 0;
      const float after = hasAfter ? samples[end + ahead] : 0;
      samples[begin + i * channels + channel] = before * (1 - place) + after * place;
    }
  }
}

// Of the sample that byte `at` of a block belongs to, rounded down to whole ones of all channels.
size_t SampleAt(size_t at, size_t channels) {
  const size_t bytes = at < kAudioHeadBytes ? 0 : at - kAudioHeadBytes;
  return bytes / (sizeof(float) * channels) * channels;
}

size_t SampleBehind(size_t at, size_t channels) {
  return SampleAt(at + sizeof(float) * channels - 1, channels);
}

}  // namespace

std::optional<double> ConcealSound(PartialFrame& frame, const SoundShape& shape) {
  const size_t channels = shape.head.channels;
  const size_t fragments = (frame.data.size() + kFragmentBytes - 1) / kFragmentBytes;
  if (channels == 0 || shape.head.sampleRate == 0 || frame.missing.size() >= fragments) {
    return std::nullopt;
  }
  if (!frame.endKnown && DataFragmentCount(shape.blockBytes) == fragments) {
    frame.data.resize(shape.blockBytes);
  }
  if (frame.missing.front() == 0) {
    WriteAudioHead(shape.head, frame.data.data());
  } else {
    const std::optional<AudioBlockHead> head = ParseAudioHead(frame.data);
    if (!head || head->channels != channels || head->sampleRate != shape.head.sampleRate) {
      return std::nullopt;
    }
  }
  const size_t whole = SampleAt(frame.data.size(), channels);
  frame.data.resize(kAudioHeadBytes + whole * sizeof(float));
  std::vector<float> samples(whole);
  std::memcpy(samples.data(), frame.data.data() + kAudioHeadBytes, whole * sizeof(float));
  size_t filled = 0;
  for (size_t i = 0; i < frame.missing.size(); ++i) {
    const size_t first = frame.missing[i];
    while (i + 1 < frame.missing.size() && frame.missing[i + 1] == frame.missing[i] + 1) ++i;
    const size_t begin = SampleAt(first * kFragmentBytes, channels);
    const size_t end =
        std::min(SampleBehind((frame.missing[i] + 1) * kFragmentBytes, channels), whole);
    FillGap(samples, begin, end, channels);
    filled += end - begin;
  }
  std::memcpy(frame.data.data() + kAudioHeadBytes, samples.data(), whole * sizeof(float));
  return double(filled) / double(channels) / shape.head.sampleRate;
}

}  // namespace Veldrift
