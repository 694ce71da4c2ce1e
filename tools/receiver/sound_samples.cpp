#include "tools/receiver/sound_samples.h"

#include <cstring>

#include "net/media_datagram.h"

namespace Veldrift {

std::optional<SoundFormat> SoundOf(const WholeFrame& block) {
  const std::optional<AudioBlockHead> head = ParseAudioHead(block.data);
  if (!head) return std::nullopt;
  return SoundFormat{int(head->sampleRate), head->channels};
}

std::vector<float> SamplesOf(const WholeFrame& block) {
  std::vector<float> samples((block.data.size() - kAudioHeadBytes) / sizeof(float));
  std::memcpy(samples.data(), block.data.data() + kAudioHeadBytes, samples.size() * sizeof(float));
  return samples;
}

}  // namespace Veldrift
