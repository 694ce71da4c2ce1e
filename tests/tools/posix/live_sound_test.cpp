// The sound track of a live stream: one format without a hole.
#include "tools/phone/live_sound.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "net/media_datagram.h"

namespace Veldrift {
namespace {

// A block that is as loud as `level` all through.
WholeFrame Block(uint32_t rate, uint8_t channels, uint16_t samples, float level) {
  WholeFrame block;
  block.stream = StreamType::Audio;
  block.data.resize(kAudioHeadBytes + size_t{samples} * channels * sizeof(float));
  std::memcpy(block.data.data(), &rate, sizeof rate);
  block.data[4] = std::byte{channels};
  block.data[5] = std::byte{32};  // bits a sample
  for (size_t at = kAudioHeadBytes; at < block.data.size(); at += sizeof level) {
    std::memcpy(block.data.data() + at, &level, sizeof level);
  }
  return block;
}

class LiveSoundTest : public testing::Test {
 protected:
  // The track in steps of 10 ms: '.' for silence, '#' for sound.
  std::string Track() const {
    constexpr size_t kStep = 480 * 2;
    std::string text;
    for (size_t at = 0; at + kStep <= samples_.size(); at += kStep) {
      text += samples_[at + kStep / 2] == 0 ? '.' : '#';
    }
    return text;
  }

  std::vector<float> samples_;
  LiveSound sound_{LiveSound::kUsual, [this](std::span<const float> samples, int64_t micros) {
                     EXPECT_NEAR(double(micros), double(samples_.size()) / 96'000 * 1e6, 1);
                     samples_.insert(samples_.end(), samples.begin(), samples.end());
                     return true;
                   }};
};

TEST_F(LiveSoundTest, SilenceGoesWithPicturesUntilSoundComesAndAgainWhereItStaysAway) {
  sound_.Accompany(0);
  EXPECT_EQ(Track(), "....");
  sound_.Accompany(40'000);
  EXPECT_EQ(Track(), "........");
  // Of a block whose first half is silent already, the rest.
  sound_.Add(Block(48'000, 2, 1920, 0.5F), 60'000);
  EXPECT_EQ(Track(), "........##");
  // The next may be on its way.
  sound_.Accompany(150'000);
  EXPECT_EQ(Track(), "........##");
  sound_.Accompany(300'000);
  EXPECT_EQ(Track(), "........##" + std::string(24, '.'));
}

TEST_F(LiveSoundTest, BlocksFollowEachOtherUnlessOneIsMissing) {
  sound_.Add(Block(48'000, 2, 960, 0.5F), 0);
  sound_.Add(Block(48'000, 2, 960, 0.5F), 29'000);
  EXPECT_EQ(Track(), "####");
  sound_.Add(Block(48'000, 2, 960, 0.5F), 100'000);
  EXPECT_EQ(Track(), "####......##");
}

TEST_F(LiveSoundTest, AnotherFormatIsConverted) {
  for (int i = 0; i < 10; ++i) {
    sound_.Add(Block(24'000, 1, 480, 0.5F), i * 20'000);
  }
  EXPECT_NEAR(double(Track().size()), 20, 1);
  EXPECT_EQ(Track().find('.'), std::string::npos);
}

}  // namespace
}  // namespace Veldrift
