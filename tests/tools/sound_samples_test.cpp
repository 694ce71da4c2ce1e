#include "tools/receiver/sound_samples.h"

#include <gtest/gtest.h>

#include <cstring>

#include "net/media_datagram.h"

namespace Veldrift {
namespace {

WholeFrame Block(uint32_t rate, uint8_t channels, const std::vector<float>& samples) {
  WholeFrame block;
  block.stream = StreamType::Audio;
  block.data.resize(kAudioHeadBytes + samples.size() * sizeof(float));
  WriteAudioHead({rate, channels}, block.data.data());
  std::memcpy(block.data.data() + kAudioHeadBytes, samples.data(), samples.size() * sizeof(float));
  return block;
}

TEST(SoundSamples, AreWhatTheBlockHolds) {
  const std::vector<float> samples = {0.5F, -0.5F, 0.25F, -0.25F};
  WholeFrame block = Block(44'100, 2, samples);
  EXPECT_EQ(SoundOf(block), (SoundFormat{44'100, 2}));
  EXPECT_EQ(SamplesOf(block), samples);
  block.data.resize(block.data.size() - 1);  // the last one isn't whole
  EXPECT_EQ(SamplesOf(block).size(), 3U);
  block.data.resize(kAudioHeadBytes - 1);
  EXPECT_EQ(SoundOf(block), std::nullopt);
}

TEST(SoundSamples, HaveNoFormatThatIsNone) {
  struct Case {
    uint32_t rate;
    uint8_t channels;
    bool sound;
  };
  const Case cases[] = {{48'000, 2, true},   {8'000, 1, true},        {768'000, 64, true},
                        {0, 2, false},       {48'000, 0, false},      {999, 2, false},
                        {768'001, 2, false}, {0x8000'0000, 2, false}, {0xFFFF'FFFF, 255, false},
                        {48'000, 65, false}};
  for (const Case& c : cases) {
    EXPECT_EQ(SoundOf(Block(c.rate, c.channels, {0.5F})).has_value(), c.sound)
        << c.rate << " " << int(c.channels);
  }
}

}  // namespace
}  // namespace Veldrift
