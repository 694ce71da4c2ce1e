#include "tools/receiver/sound_samples.h"

#include <cstring>

#include "net/media_datagram.h"

namespace Veldrift {

namespace {

constexpr uint32_t kLowestRate = 1'000;
constexpr uint32_t kHighestRate = 768'000;
constexpr uint8_t kMostChannels = 64;

}  // namespace

std::optional<SoundFormat> SoundOf(const WholeFrame& block) {
  const std::optional<AudioBlockHead> head = ParseAudioHead(block.data);
  if (!head || head->sampleRate < kLowestRate || head->sampleRate > kHighestRate ||
      head->channels > kMostChannels) {
    return std::nullopt;
  }
  return SoundFormat{int(head->sampleRate), head->channels};
}

std::vector<float> SamplesOf(const WholeFrame& block) {
  std::vector<float> samples((block.data.size() - kAudioHeadBytes) / sizeof(float));
  std::memcpy(samples.data(), block.data.data() + kAudioHeadBytes, samples.size() * sizeof(float));
  return samples;
}

}  // namespace Veldrift
