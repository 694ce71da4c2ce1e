// What every scripted encoder makes of pictures: real streams, whose pictures are those that went
// in.
#include <gtest/gtest.h>
#include <mfapi.h>
#include <mferror.h>
#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/transforms/client/scenario.h"
#include "tests/transforms/common/environment.h"
#include "tests/transforms/common/kinds.h"
#include "tests/transforms/encoder_client.h"
#include "tests/transforms/stream_judge.h"

namespace Veldrift::Transforms {
namespace {

constexpr int kFrames = 30;
constexpr double kGoodPsnr = 35;

TEST(ScriptedEncoder, GivesEveryPictureOfEveryKind) {
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(NameOf(kind));
    const Scenario scenario(NameOf(kind));
    EncoderClient encoder(kind.hevc);
    ASSERT_EQ(encoder.Open(), S_OK);
    EXPECT_EQ(encoder.Async(), kind.family.async);
    const std::vector<Unit> units = encoder.Encode(0, kFrames);
    ASSERT_EQ(units.size(), size_t{kFrames});
    for (int frame = 0; frame < kFrames; ++frame) {
      const Unit& unit = units[static_cast<size_t>(frame)];
      EXPECT_EQ(unit.time, frame * kFrameTime);
      EXPECT_EQ(unit.duration, kFrameTime);
      EXPECT_EQ(unit.clean, frame == 0);
      EXPECT_EQ(HasSets(TypesOf(unit.bytes, kind.hevc), kind.hevc), frame == 0);
    }
    EXPECT_EQ(KeyPictures(units, kind.hevc), std::vector<int>{0});
    const Decoded decoded = Decode({}, units, kind.hevc);
    EXPECT_EQ(decoded.pictures, kFrames);
    EXPECT_EQ(decoded.damaged, 0);
    EXPECT_EQ(decoded.unlikePatch, 0);
    EXPECT_EQ(decoded.unlikeSignal, 0);
    EXPECT_GT(decoded.worstPsnr, kGoodPsnr);
    EXPECT_TRUE(encoder.Drain().empty());
  }
}

// Each behaviour is of either codec, and of either way to drive one.
class EitherEncoder : public testing::TestWithParam<const char*> {
 protected:
  EitherEncoder() : hevc(std::string(GetParam()).ends_with("hevc")), scenario(GetParam()) {}

  const bool hevc;
  Scenario scenario;
};

INSTANTIATE_TEST_SUITE_P(Kinds, EitherEncoder,
                         testing::Values("nvidia-h264", "nvidia-hevc", "nvidia-async-h264",
                                         "nvidia-async-hevc"),
                         [](const auto& kind) {
                           std::string name = kind.param;
                           std::erase(name, '-');
                           return name;
                         });

TEST_P(EitherEncoder, ForcesAKeyFrameForOneFrame) {
  EncoderClient encoder(hevc);
  ASSERT_EQ(encoder.Open(), S_OK);
  std::vector<Unit> units = encoder.Encode(0, 4);
  ASSERT_EQ(encoder.Set(CODECAPI_AVEncVideoForceKeyFrame, 1), S_OK);
  const std::vector<Unit> more = encoder.Encode(4, 4);
  units.insert(units.end(), more.begin(), more.end());
  EXPECT_EQ(KeyPictures(units, hevc), (std::vector<int>{0, 4}));
  EXPECT_TRUE(units[4].clean);
  EXPECT_FALSE(units[5].clean);
}

TEST_P(EitherEncoder, PlacesKeyFramesByItselfUnlessItIsToldNotTo) {
  for (const bool own : {true, false}) {
    scenario.Traits(own ? "" : "own-gop=no");
    EncoderClient encoder(hevc);
    ASSERT_EQ(encoder.Open(), S_OK);
    ASSERT_EQ(encoder.Set(CODECAPI_AVEncMPVGOPSize, 3), S_OK);
    EXPECT_EQ(KeyPictures(encoder.Encode(0, 8), hevc),
              own ? (std::vector<int>{0, 3, 6}) : std::vector<int>{0});
  }
}

// What the header holds makes a stream without sets decodable; with none, nothing does.
TEST_P(EitherEncoder, GivesItsSequenceHeaderInEachForm) {
  for (const std::string form : {"annexb", "record", "none"}) {
    SCOPED_TRACE(form);
    scenario.Traits("sets-in-stream=no header=" + form);
    EncoderClient encoder(hevc);
    ASSERT_EQ(encoder.Open(), S_OK);
    const std::vector<uint8_t> header = encoder.Header();
    const std::vector<Unit> units = encoder.Encode(0, 3);
    ASSERT_EQ(units.size(), 3U);
    EXPECT_FALSE(HasSets(TypesOf(units[0].bytes, hevc), hevc));
    if (form == "none") {
      EXPECT_TRUE(header.empty());
      EXPECT_LT(Decode({}, units, hevc).pictures, 3);
    } else if (form == "annexb") {
      EXPECT_EQ(header.at(3), 1);
      EXPECT_TRUE(HasSets(TypesOf(header, hevc), hevc));
      EXPECT_EQ(Decode(header, units, hevc).pictures, 3);
    } else {
      ASSERT_GT(header.size(), 30U);
      EXPECT_EQ(header[0], 1);
      // The first entry: a sequence parameter set behind a count, or an array of video sets.
      EXPECT_EQ(hevc ? header[23] & 63 : header[8] & 31, hevc ? 32 : 7);
      EXPECT_EQ(hevc ? header[22] : header[5] & 31, hevc ? 3 : 1);
    }
  }
}

TEST_P(EitherEncoder, PutsUnitsBehindLengthsThatLookLikeStartCodes) {
  scenario.Traits("units=lengths lead=300 sets-in-stream=no");
  EncoderClient encoder(hevc);
  ASSERT_EQ(encoder.Open(), S_OK);
  const std::vector<Unit> units = encoder.Encode(0, 3);
  ASSERT_EQ(units.size(), 3U);
  for (size_t place = 0; place < units.size(); ++place) {
    const std::vector<uint8_t>& bytes = units[place].bytes;
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 4),
              (std::vector<uint8_t>{0, 0, 1, 300 - 256}));
    const std::vector<int> types = TypesOf(bytes, hevc, true);
    ASSERT_EQ(types.size(), 2U);
    EXPECT_EQ(types[0], hevc ? 39 : 6);
    EXPECT_EQ(HasKeyPicture(types, hevc), place == 0);
  }
}

TEST_P(EitherEncoder, CanBeDecodedWithUserDataOfEveryLength) {
  for (const int lead : {32, 255, 256, 258, 259, 260, 300, 511}) {
    SCOPED_TRACE(lead);
    scenario.Traits("lead=" + std::to_string(lead));
    EncoderClient encoder(hevc);
    ASSERT_EQ(encoder.Open(), S_OK);
    const Decoded decoded = Decode({}, encoder.Encode(0, 3), hevc);
    EXPECT_EQ(decoded.pictures, 3);
    EXPECT_EQ(decoded.unlikePatch, 0);
  }
}

// Two seconds each, of which the second counts.
size_t BytesOfASecond(EncoderClient& encoder, int first) {
  encoder.Encode(first, kFps);
  return TotalBytes(encoder.Encode(first + kFps, kFps));
}

TEST_P(EitherEncoder, FollowsTheRateLiveOrFromTheNextKeyFrame) {
  EncoderClient encoder(hevc);
  ASSERT_EQ(encoder.Open(), S_OK);
  ASSERT_EQ(encoder.Set(CODECAPI_AVEncCommonMeanBitRate, 400'000), S_OK);
  const size_t low = BytesOfASecond(encoder, 0);
  ASSERT_EQ(encoder.Set(CODECAPI_AVEncCommonMeanBitRate, 100'000), S_OK);
  if (hevc) {
    EXPECT_GT(BytesOfASecond(encoder, 60), low / 2);
    ASSERT_EQ(encoder.Set(CODECAPI_AVEncVideoForceKeyFrame, 1), S_OK);
  }
  EXPECT_LT(BytesOfASecond(encoder, 120), low / 2);
}

// The second that follows on a picture that has stood still for two.
std::vector<Unit> Burst(bool hevc, uint32_t peak) {
  EncoderClient encoder(hevc);
  EXPECT_EQ(encoder.Open(), S_OK);
  EXPECT_EQ(encoder.Set(CODECAPI_AVEncCommonRateControlMode, 1), S_OK);
  EXPECT_EQ(encoder.Set(CODECAPI_AVEncCommonMeanBitRate, 300'000), S_OK);
  EXPECT_EQ(encoder.Set(CODECAPI_AVEncCommonMaxBitRate, peak), S_OK);
  for (int still = 0; still < 2 * kFps; ++still) encoder.Encode(0, 1);
  return encoder.Encode(1, kFps);
}

// What it saved it may spend, up to the peak.
TEST_P(EitherEncoder, BoundsABurstByThePeakRate) {
  EXPECT_GT(TotalBytes(Burst(hevc, 3'000'000)) * 4, TotalBytes(Burst(hevc, 300'000)) * 5);
}

TEST_P(EitherEncoder, GivesTheSameStreamTwice) {
  const std::vector<Unit> first = Burst(hevc, 300'000);
  const std::vector<Unit> second = Burst(hevc, 300'000);
  ASSERT_EQ(first.size(), second.size());
  for (size_t place = 0; place < first.size(); ++place) {
    EXPECT_EQ(first[place].bytes, second[place].bytes) << "frame " << place;
  }
}

TEST_P(EitherEncoder, FollowsTheQuality) {
  size_t bytes[2] = {};
  for (const uint32_t quality : {20U, 90U}) {
    EncoderClient encoder(hevc);
    ASSERT_EQ(encoder.Open(), S_OK);
    ASSERT_EQ(encoder.Set(CODECAPI_AVEncCommonRateControlMode, 3), S_OK);
    ASSERT_EQ(encoder.Set(CODECAPI_AVEncCommonQuality, quality), S_OK);
    bytes[quality > 50] = TotalBytes(encoder.Encode(0, 5));
  }
  EXPECT_GT(bytes[1], bytes[0] * 3);
}

// libx265 can't have one for a frame alone: such a frame and the one behind it begin anew.
TEST_P(EitherEncoder, TakesAQuantiserForOneFrame) {
  EncoderClient encoder(hevc);
  ASSERT_EQ(encoder.Open(), S_OK);
  const std::vector<Unit> usual = encoder.Encode(0, 10);
  ASSERT_EQ(encoder.Set(CODECAPI_AVEncVideoEncodeQP, 51), S_OK);
  const std::vector<Unit> coarse = encoder.Encode(10, 1);
  const std::vector<Unit> after = encoder.Encode(11, 1);
  ASSERT_EQ(coarse.size(), 1U);
  EXPECT_EQ(coarse[0].clean, hevc);
  EXPECT_EQ(after.at(0).clean, hevc);
  EXPECT_LT(coarse[0].bytes.size() * 3, usual[9].bytes.size());
  EXPECT_GT(after[0].bytes.size(), coarse[0].bytes.size() * 2);
}

TEST_P(EitherEncoder, WritesDownWhatWasSetInOrder) {
  scenario.Traits("fail=MaxBitRate");
  EncoderClient encoder(hevc);
  ASSERT_EQ(encoder.Open(), S_OK);
  EXPECT_EQ(encoder.Set(CODECAPI_AVEncCommonMeanBitRate, 3'000'000), S_OK);
  EXPECT_EQ(encoder.Set(CODECAPI_AVEncCommonMaxBitRate, 4'000'000), E_FAIL);
  EXPECT_EQ(encoder.Set(CODECAPI_AVEncMPVDefaultBPictureCount, 0), S_OK);
  EXPECT_EQ(encoder.Set(CODECAPI_AVEncMPVDefaultBPictureCount, 2), E_INVALIDARG);
  EXPECT_EQ(encoder.Set(CODECAPI_AVEncCommonRealTime, 1), S_OK);
  // A number where truth is wanted.
  EXPECT_EQ(encoder.Set(CODECAPI_AVLowLatencyMode, 1), E_INVALIDARG);
  EXPECT_EQ(
      scenario.PropertiesSet(),
      (std::vector<std::string>{"MeanBitRate 3000000", "MaxBitRate 4000000", "BPictureCount 0",
                                "BPictureCount 2", "CommonRealTime 1", "LowLatencyMode"}));
}

// The picture in a buffer whose rows are further apart than they are long.
ComPtr<IMFSample> PitchedSample() {
  ComPtr<IMFSample> sample = SampleOf(PictureAt(0), 0);
  ComPtr<IMFMediaBuffer> buffer;
  ComPtr<IMF2DBuffer> rows;
  BYTE* first = nullptr;
  LONG pitch = 0;
  if (FAILED(
          MFCreate2DMediaBuffer(kWidth, kHeight, MFVideoFormat_NV12.Data1, FALSE, buffer.Put())) ||
      FAILED(buffer->QueryInterface(__uuidof(IMF2DBuffer), rows.PutVoid())) ||
      FAILED(rows->Lock2D(&first, &pitch))) {
    return {};
  }
  EXPECT_GT(pitch, kWidth);
  const std::vector<uint8_t> picture = PictureAt(0);
  for (int row = 0; row < kHeight * 3 / 2; ++row) {
    std::copy_n(&picture[static_cast<size_t>(row * kWidth)], kWidth, first + row * pitch);
  }
  rows->Unlock2D();
  sample->RemoveAllBuffers();
  sample->AddBuffer(buffer.Get());
  return sample;
}

TEST_P(EitherEncoder, ReadsBuffersWithAPitchOfTheirOwn) {
  std::vector<std::vector<uint8_t>> streams;
  for (const auto& sample : {SampleOf(PictureAt(0), 0), PitchedSample()}) {
    ASSERT_TRUE(sample);
    EncoderClient encoder(hevc);
    ASSERT_EQ(encoder.Open(), S_OK);
    Unit unit;
    ASSERT_EQ(encoder.EncodeOne(*sample.Get(), unit), S_OK);
    streams.push_back(unit.bytes);
  }
  EXPECT_EQ(streams[0], streams[1]);
}

}  // namespace
}  // namespace Veldrift::Transforms
