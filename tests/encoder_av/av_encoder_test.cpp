// What the libavcodec encoder does beyond the contract.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <numeric>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "encoder/annex_b.h"
#include "encoder/av/av_backend.h"
#include "encoder/av/av_handles.h"
#include "encoder/encoder_description.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

struct Unit {
  std::vector<uint8_t> data;
  bool keyFrame;
  uint64_t timestamp;
};

constexpr int kWidth = 320;
constexpr int kHeight = 176;

// Detail that moves, so that frames cost bits.
std::vector<uint8_t> Noise(int frame) {
  std::mt19937 random(static_cast<unsigned>(frame) + 1);
  std::vector<uint8_t> picture(size_t{kWidth} * kHeight * 4);
  for (uint8_t& byte : picture) byte = static_cast<uint8_t>(random());
  return picture;
}

// A gradient that stands still.
std::vector<uint8_t> Still() {
  std::vector<uint8_t> picture(size_t{kWidth} * kHeight * 4);
  for (size_t i = 0; i < picture.size(); ++i) picture[i] = static_cast<uint8_t>(i / 5);
  return picture;
}

// The decoder's view of one access unit.
AvFramePtr Decode(const std::vector<uint8_t>& data, int32_t codec) {
  const AVCodec* decoder =
      avcodec_find_decoder(codec == kCodecH264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_HEVC);
  const AvContextPtr context(avcodec_alloc_context3(decoder));
  context->thread_count = 1;
  avcodec_open2(context.get(), decoder, nullptr);
  const AvPacketPtr packet(av_packet_alloc());
  av_new_packet(packet.get(), static_cast<int>(data.size()));
  std::copy(data.begin(), data.end(), packet->data);
  avcodec_send_packet(context.get(), packet.get());
  avcodec_send_packet(context.get(), nullptr);
  AvFramePtr frame(av_frame_alloc());
  return avcodec_receive_frame(context.get(), frame.get()) >= 0 ? std::move(frame) : nullptr;
}

class AvEncoderTest : public testing::TestWithParam<int32_t> {
 protected:
  AvEncoderTest() { Attach(*encoder_, units_); }

  static void Attach(IHardwareEncoder& encoder, std::vector<Unit>& units) {
    encoder.SetOutputCallback(
        [&units](const uint8_t* data, uint64_t size, bool keyFrame, uint64_t timestamp) {
          units.push_back({{data, data + size}, keyFrame, timestamp});
        });
  }
  void Configure(int32_t gopSize, uint32_t bitrate = 4'000'000) {
    encoder_->SetCodec(GetParam());
    encoder_->SetGopSize(gopSize);
    ASSERT_TRUE(encoder_->Configure(kWidth, kHeight, bitrate, 30));
  }
  void Push(const std::vector<uint8_t>& picture) {
    encoder_->EncodeFrame(picture.data(), kWidth, kHeight, kWidth * 4, ++pushed_ * 33'333);
  }
  void PushNoise(int count) {
    for (int i = 0; i < count; ++i) Push(Noise(static_cast<int>(pushed_)));
  }
  size_t BytesOfLast(size_t count) const {
    size_t bytes = 0;
    for (size_t i = units_.size() - count; i < units_.size(); ++i) bytes += units_[i].data.size();
    return bytes;
  }

  const std::unique_ptr<IHardwareEncoder> encoder_ = MakeAvEncoder("auto");
  std::vector<Unit> units_;
  int64_t pushed_ = 0;
};

TEST_P(AvEncoderTest, EveryFrameComesOutAtOnceAndKeyFramesWhereTheyAreDue) {
  struct Case {
    int32_t gopSize;
    std::vector<int> keys;
  };
  const Case cases[] = {{1, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9}}, {3, {0, 4, 8}}, {60, {0}}};
  for (const Case& c : cases) {
    Configure(c.gopSize);
    units_.clear();
    std::vector<int> keys;
    for (int frame = 0; frame < 10; ++frame) {
      Push(frame < 5 ? Still() : Noise(frame));  // a cut in the middle
      ASSERT_EQ(units_.size(), static_cast<size_t>(frame) + 1);
      EXPECT_EQ(units_.back().timestamp, static_cast<uint64_t>(pushed_ * 33'333));
      EXPECT_EQ(ContainsKeyFrame(units_.back().data, GetParam()), units_.back().keyFrame);
      EXPECT_EQ(!FindParameterSets(units_.back().data, GetParam()).empty(), units_.back().keyFrame);
      EXPECT_TRUE(StartsWithStartCode(units_.back().data));
      if (units_.back().keyFrame) keys.push_back(frame);
    }
    EXPECT_EQ(keys, c.keys) << "GOP size " << c.gopSize;
  }
}

TEST_P(AvEncoderTest, ALowerRateMakesSmallerFramesWhileItRuns) {
  Configure(1, 8'000'000);
  PushNoise(30);
  const size_t before = BytesOfLast(10);
  encoder_->SetBitrate(1'000'000);
  EXPECT_EQ(encoder_->GetBitrate(), 1'000'000U);
  PushNoise(30);
  ASSERT_EQ(units_.size(), 60U);
  EXPECT_LT(BytesOfLast(10), before * 2 / 3);
}

TEST_P(AvEncoderTest, AnEmergencyShrinksItsFramesAndNoMore) {
  Configure(100, 8'000'000);
  PushNoise(20);
  const size_t before = BytesOfLast(5);
  encoder_->TriggerEmergencyCompression(5);
  PushNoise(5);
  EXPECT_TRUE(units_[20].keyFrame);
  const size_t during = BytesOfLast(5);
  EXPECT_LT(during, before / 2);
  PushNoise(10);
  EXPECT_GT(BytesOfLast(5), during);
  EXPECT_LT(BytesOfLast(5), before * 3);
}

TEST_P(AvEncoderTest, QualityDecidesInQualityMode) {
  encoder_->SetRateControl(kRateControlQuality, 0.9F);
  Configure(1);
  PushNoise(3);
  const size_t fine = units_.back().data.size();
  encoder_->SetQualityMode(0.1F);
  PushNoise(3);
  EXPECT_LT(units_.back().data.size(), fine / 2);
}

// 4:2:0 has no half pixels: an odd last row or column isn't encoded.
TEST_P(AvEncoderTest, AnOddSizeIsKeptAndEncodedWithoutItsLastColumn) {
  EncoderSettings settings;
  settings.width = 161;
  settings.height = 90;
  settings.codec = GetParam();
  const std::unique_ptr<IHardwareEncoder> clone = encoder_->Clone(settings);
  ASSERT_TRUE(clone);
  EXPECT_EQ(clone->GetWidth(), 161);
  EXPECT_EQ(clone->GetBitrate(), 15'000'000U);
  std::vector<Unit> cloned;
  Attach(*clone, cloned);
  const std::vector<uint8_t> picture = Noise(1);
  clone->EncodeFrame(picture.data(), kWidth, kHeight, kWidth * 4, 7);
  ASSERT_EQ(cloned.size(), 1U);
  const AvFramePtr frame = Decode(cloned[0].data, GetParam());
  ASSERT_TRUE(frame);
  EXPECT_EQ(frame->width, 160);
  EXPECT_EQ(frame->height, 90);
}

// What the decoder's buffer allows reaches the codec: in H.264 at once, in HEVC by a new opening.
TEST_P(AvEncoderTest, ADecodersBufferEndsTheRateWhileItRuns) {
  Configure(1, 8'000'000);
  PushNoise(30);
  const size_t before = BytesOfLast(10);
  encoder_->SetHrdBufferBits(200'000, 800'000);
  EXPECT_EQ(encoder_->GetBitrate(), 8'000'000U);
  PushNoise(30);
  ASSERT_EQ(units_.size(), 60U);
  EXPECT_LT(BytesOfLast(10), before * 2 / 3);
}

// A picture of noise, all-intra, has every frame as large as the cap: that is the rate that the
// phone is told.
TEST_P(AvEncoderTest, TheDescriptionSaysTheRateThatTheByteCapLeaves) {
  encoder_->SetCodec(GetParam());
  encoder_->SetFrameByteCap(100'000);
  ASSERT_TRUE(encoder_->Configure(1280, 720, 150'000'000, 30));
  EXPECT_EQ(encoder_->GetBitrate(), 150'000'000U);
  EXPECT_TRUE(encoder_->GetDescription().ends_with("@ 30 fps, 24 Mbps]"))
      << encoder_->GetDescription();
}

TEST_P(AvEncoderTest, ColoursArriveAndAreSaidToBeBt709Limited) {
  struct Case {
    std::array<uint8_t, 4> bgra;
    std::array<int, 3> levels;
  };
  const Case cases[] = {{{255, 255, 255, 255}, {235, 127, 128}},
                        {{0, 0, 0, 255}, {16, 128, 128}},
                        {{0, 0, 255, 255}, {63, 102, 240}}};
  Configure(1);
  for (const Case& c : cases) {
    std::vector<uint8_t> picture;
    for (int i = 0; i < kWidth * kHeight; ++i) {
      picture.insert(picture.end(), c.bgra.begin(), c.bgra.end());
    }
    Push(picture);
    const AvFramePtr frame = Decode(units_.back().data, GetParam());
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->width, kWidth);
    EXPECT_EQ(frame->height, kHeight);
    EXPECT_EQ(frame->color_primaries, AVCOL_PRI_BT709);
    EXPECT_EQ(frame->color_trc, AVCOL_TRC_BT709);
    EXPECT_EQ(frame->colorspace, AVCOL_SPC_BT709);
    EXPECT_EQ(frame->color_range, AVCOL_RANGE_MPEG);
    for (size_t plane = 0; plane < 3; ++plane) {
      const uint8_t* middle = frame->data[plane] + frame->linesize[plane] * 40 + 40;
      EXPECT_NEAR(*middle, c.levels[plane], 2) << "plane " << plane;
    }
  }
}

TEST_P(AvEncoderTest, ImpossibleSettingsAreRefused) {
  encoder_->SetCodec(GetParam());
  EXPECT_FALSE(encoder_->Configure(15, 100, 0, 30));
  EXPECT_FALSE(encoder_->Configure(100, 100, 0, 0));
  EXPECT_FALSE(encoder_->Ready());
  EXPECT_GE(CountInPluginLog("Configure: invalid 15x100@30"), 1U);
  ASSERT_TRUE(encoder_->Configure(640, 360, 0, 30));
  EXPECT_EQ(encoder_->GetDescription(), GetParam() == kCodecH264
                                            ? "libx264 [SW, 640x360 H.264 @ 30 fps, 15 Mbps]"
                                            : "libx265 [SW, 640x360 HEVC @ 30 fps, 15 Mbps]");
  encoder_->Shutdown();
  EXPECT_EQ(encoder_->GetDescription(), "");
}

TEST_P(AvEncoderTest, TheHighestRatesOpen) {
  encoder_->SetCodec(GetParam());
  EXPECT_TRUE(encoder_->Configure(1280, 720, 150'000'000, 30));
  EXPECT_TRUE(encoder_->Configure(1920, 1080, 200'000'000, 60));
}

TEST_P(AvEncoderTest, TheSmallestPicturesOpenAtTheHighestRate) {
  struct Case {
    uint32_t width;
    uint32_t height;
  };
  const std::vector<uint8_t> picture(size_t{16} * 16 * 4, 100);
  encoder_->SetCodec(GetParam());
  for (const Case& c : {Case{16, 16}, Case{31, 1080}, Case{1920, 17}}) {
    EXPECT_TRUE(encoder_->Configure(c.width, c.height, 150'000'000, 30));
    units_.clear();
    encoder_->EncodeFrame(picture.data(), 16, 16, 16 * 4, 0);
    EXPECT_EQ(units_.size(), 1U) << c.width << "x" << c.height;
  }
}

// The rate asks for a level that forbids the small picture's blocks.
TEST(AvEncoder, ACodecThatCannotBeOpenedAnewLeavesNothingBehind) {
  const std::unique_ptr<IHardwareEncoder> encoder = MakeAvEncoder("auto");
  ASSERT_TRUE(encoder->Configure(1920, 31, 1'000'000, 240));
  encoder->SetBitrate(150'000'000);
  const std::vector<uint8_t> picture(size_t{16} * 16 * 4, 100);
  encoder->EncodeFrame(picture.data(), 16, 16, 16 * 4, 0);
  EXPECT_FALSE(encoder->Ready());
  EXPECT_EQ(encoder->GetWidth(), 0);
  EXPECT_EQ(encoder->GetDescription(), "");
  EXPECT_EQ(GetActiveEncoderDescription(), "");
}

// 100,000 bytes are 70 fragments, which the erasure code protects; the small noise picture would
// take more without a ceiling.
TEST_P(AvEncoderTest, FramesStayWithinTheByteCap) {
  encoder_->SetFrameByteCap(100'000);
  encoder_->SetCodec(GetParam());
  encoder_->SetGopSize(600);
  ASSERT_TRUE(encoder_->Configure(640, 360, 150'000'000, 30));
  std::vector<uint8_t> noise(size_t{640} * 360 * 4);
  std::mt19937 random(3);
  for (int i = 0; i < 4; ++i) {
    for (uint8_t& byte : noise) byte = static_cast<uint8_t>(random() & 0x3F);
    encoder_->EncodeFrame(noise.data(), 640, 360, 640 * 4, i * 33'333);
  }
  ASSERT_EQ(units_.size(), 4U);
  // The codecs aim at it, HEVC badly at its second frame: 130,000 to 151,000 bytes, as its threads
  // fall. Without the cap that frame has 280,000.
  for (const Unit& unit : units_) EXPECT_LE(unit.data.size(), 180'000U);
  EXPECT_GT(units_[0].data.size(), 20'000U);
}

TEST_P(AvEncoderTest, APeakCountsInVbrOnlyAndIsNeverBelowTheMean) {
  Configure(1, 4'000'000);
  encoder_->SetPeakBitrate(1'000'000);
  const size_t before =
      CountInPluginLog("SetPeakBitrate: max=4000000 bps (mean=4000000, ratio=1.00)");
  encoder_->SetRateControl(kRateControlVbr, 0.75F);
  encoder_->SetPeakBitrate(1'000'000);
  EXPECT_EQ(CountInPluginLog("SetPeakBitrate: max=4000000 bps (mean=4000000, ratio=1.00)"),
            before + 1);
  PushNoise(2);
  EXPECT_EQ(units_.size(), 2U);
}

INSTANTIATE_TEST_SUITE_P(Codecs, AvEncoderTest, testing::Values(kCodecHevc, kCodecH264),
                         [](const auto& codec) {
                           return codec.param == kCodecH264 ? std::string("H264")
                                                            : std::string("Hevc");
                         });

}  // namespace
}  // namespace Veldrift
