// The Windows host and module on a graphics adapter: whichever road a picture takes to the encoder,
// the same bytes arrive there, and the same picture at the phone.
#include <gmock/gmock.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "encoder/bgra_to_nv12.h"
#include "platform/file.h"
#include "tests/judge/video_file.h"
#include "tests/stream/stage.h"
#include "tests/support/child.h"
#include "tools/pattern/pattern.h"
#include "tools/phone/phone_exit.h"

namespace Veldrift {
namespace {

constexpr int kWidth = 336;
constexpr int kHeight = 176;
constexpr size_t kLumaBytes = size_t{kWidth} * kHeight;
constexpr size_t kPictureBytes = kLumaBytes * 3 / 2;

// In dB, of decoded luma from what was painted: at a constant quality two runs of the same encoder
// are closer than this, although no picture is the same in both, since it shows the time.
constexpr double kPsnrSpread = 2;

constexpr char kActive[] = "ACTIVE (allocator ready; MF_SA_D3D11_AWARE=yes, D3D mgr accepted)";
constexpr char kNotWanted[] =
    "off (auto-default is NVIDIA-only; non-NVIDIA encoder or VD_GPU_RESIDENT_ENCODE=0)";
constexpr char kNoDevice[] = "n/a (no D3D11 device/manager)";

// What the encoder was given, and what came of it.
struct Stream {
  std::map<std::string, std::string> roads;  // of each transform, picture by picture
  size_t textures = 0;
  size_t memories = 0;
  size_t refusals = 0;
  size_t marked = 0;        // as key frames
  size_t forced = 0;        // key frames, by the property
  size_t unlikeScalar = 0;  // pictures that aren't the plain conversion's, byte for byte
  std::vector<uint32_t> given;
  VideoFile take;
};

// A picture as the module is handed it, by the plain conversion.
std::string ScalarPicture(const PatternStamp& stamp) {
  std::vector<uint8_t> bgra(kLumaBytes * 4);
  PaintPattern(bgra.data(), kWidth, kHeight, kWidth * 4, stamp);
  std::string planes(kPictureBytes, '\0');
  auto* luma = reinterpret_cast<uint8_t*>(planes.data());
  ConvertBgraToNv12Scalar(bgra.data(), kWidth * 4, luma, luma + kLumaBytes, kWidth, kHeight);
  return planes;
}

void JudgeGiven(const std::string& pictures, Stream& stream) {
  EXPECT_EQ(pictures.size() % kPictureBytes, 0U);
  for (size_t at = 0; at + kPictureBytes <= pictures.size(); at += kPictureBytes) {
    const std::string picture = pictures.substr(at, kPictureBytes);
    const auto stamp =
        ReadStamp(reinterpret_cast<const uint8_t*>(picture.data()), kWidth, kHeight, kWidth);
    if (stamp) stream.given.push_back(stamp->frameNumber);
    stream.unlikeScalar += !stamp || picture != ScalarPicture(*stamp) ? 1 : 0;
  }
}

// From the lines "nvidia-hevc#1 ProcessInput time=0 ... in a texture 00000000". 'T' is a picture in
// a texture, 'M' one in memory, 'x' one that was refused.
void JudgeRoads(const std::string& trace, Stream& stream) {
  std::istringstream lines(trace);
  for (std::string line; std::getline(lines, line);) {
    stream.forced += line.find(" SetValue VideoForceKeyFrame 1 ") != line.npos ? 1 : 0;
    const size_t who = line.find(" ProcessInput ");
    if (who == line.npos) continue;
    const bool taken = line.ends_with(" 00000000");
    stream.marked += line.find(" clean=1 ") != line.npos ? 1 : 0;
    const bool texture = line.find(" in a texture ") != line.npos;
    stream.roads[line.substr(0, who)] += !taken ? 'x' : texture ? 'T' : 'M';
    size_t& count = !taken ? stream.refusals : texture ? stream.textures : stream.memories;
    ++count;
  }
}

// "KIND CODEC": as VD_TRANSFORMS and the phone say it.
struct Encoder {
  const char* kind;
  const char* codec;
};

void PrintTo(const Encoder& encoder, std::ostream* out) {
  *out << encoder.kind << " " << encoder.codec;
}

class OnAdapterTest : public testing::TestWithParam<Encoder> {
 protected:
  void SetUp() override {
    if (!HostHasAdapter()) GTEST_SKIP() << "this host has no graphics adapter for its pictures";
  }

  // Some seconds of the generated picture by the transforms of `kind`.
  void Run(const Encoder& encoder, const std::string& status, Stream& stream) {
    SCOPED_TRACE(encoder.kind);
    Stage stage;
    const auto trace = stage.File("trace"), pictures = stage.File("pictures");
    const ScopedEnvironment shown("VD_TRANSFORMS", encoder.kind);
    const ScopedEnvironment traced("VD_TRANSFORM_TRACE", "Z:" + PathText(trace));
    const ScopedEnvironment kept("VD_TRANSFORM_PICTURES", "Z:" + PathText(pictures));
    stage.SetInstallation(
        R"({"id":"0e9b1c34-6f0a-4a5c-9a53-2f2f7d1b8c11","enableAsyncHwEncoders":"true"})");
    ASSERT_NO_FATAL_FAILURE(stage.StartHost(
        {"--size", std::to_string(kWidth) + "x" + std::to_string(kHeight), "--fps", "30"}));
    StandIn& phone = stage.StartPhone(
        "a", {"--codec", encoder.codec, "--gop", "short", "--mode", "quality", "--quality", "90",
              "--seconds", "3", "--record", PathText(stage.File("take.mkv"))});
    EXPECT_EQ(phone.Wait(), kExitGood) << testing::PrintToString(phone.Complaints());
    ASSERT_NO_FATAL_FAILURE(ExpectGoodPictures(phone.Summary()));
    stage.EndHost();
    const size_t statuses = stage.CountInHostLog("[BigOne] GPU-resident status: ");
    EXPECT_GE(statuses, 1U);
    EXPECT_EQ(stage.CountInHostLog("[BigOne] GPU-resident status: " + status + "\r\n"), statuses);
    conversions_ = stage.CountInHostLog("[Sunshine] Step 4 GPU BGRA→NV12 ENABLED: 336x176");
    EXPECT_EQ(stage.CountInHostLog("FALLBACK"), 0U);
    JudgeRoads(ReadWholeFile(trace).value_or(""), stream);
    JudgeGiven(ReadWholeFile(pictures).value_or(""), stream);
    stream.take = ReadVideoFile(stage.File("take.mkv"));
    ExpectWhatWasGiven(stream);
  }

  static void ExpectWhatWasGiven(const Stream& stream) {
    EXPECT_EQ(stream.unlikeScalar, 0U);
    EXPECT_EQ(stream.given.size(), stream.textures + stream.memories);
    EXPECT_GE(stream.given.size(), 20U);
    const VideoFile& take = stream.take;
    EXPECT_EQ(take.error, "");
    EXPECT_GE(take.pictures, 20);
    EXPECT_TRUE(take.saysBt709Limited);
    EXPECT_GT(take.worstPsnr, 35);
    EXPECT_LT(take.worstPatch, 2);
    EXPECT_THAT(take.stamps, testing::Each(testing::Truly([&](uint32_t number) {
                  return std::ranges::count(stream.given, number) > 0;
                })));
  }

  size_t conversions_ = 0;  // how often the conversion with read-back was set up
};

using OnAdapter = OnAdapterTest;

TEST_P(OnAdapter, EveryRoadOfAPictureEndsInTheSameStream) {
  Stream resident;
  ASSERT_NO_FATAL_FAILURE(Run(GetParam(), kActive, resident));
  EXPECT_EQ(resident.memories, 0U);
  EXPECT_EQ(conversions_, 0U);
  const bool asynchronous = std::string(GetParam().kind).ends_with("-async");
  // Samples come back, and the mark of a key frame must not come with them.
  if (asynchronous) {
    EXPECT_LE(resident.marked, resident.forced);
  }

  // Of a maker whose encoders get pictures in memory.
  Stream readBack;
  ASSERT_NO_FATAL_FAILURE(
      Run({asynchronous ? "amd-async" : "amd", GetParam().codec}, kNotWanted, readBack));
  EXPECT_EQ(readBack.textures, 0U);
  EXPECT_GE(conversions_, 1U);

  const ScopedEnvironment none("VD_WITHOUT_DIRECT3D", "1");
  Stream scalar;
  ASSERT_NO_FATAL_FAILURE(Run(GetParam(), kNoDevice, scalar));
  EXPECT_EQ(scalar.textures, 0U);
  EXPECT_EQ(conversions_, 0U);

  for (const Stream* stream : {&resident, &readBack}) {
    EXPECT_EQ(stream->take.codec, scalar.take.codec);
    EXPECT_NEAR(stream->take.worstPsnr, scalar.take.worstPsnr, kPsnrSpread);
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, OnAdapter,
                         testing::Values(Encoder{"intel", "h264"}, Encoder{"nvidia", "hevc"},
                                         Encoder{"nvidia-async", "h264"},
                                         Encoder{"intel-async", "hevc"}));

// The transform refuses a picture in a texture: from there on they come in memory, and the phone
// sees a stream.
TEST_F(OnAdapter, ATextureThatIsRefusedEndsThatRoadAndNotTheStream) {
  const ScopedEnvironment scripted("VD_TRANSFORM", "fail=ProcessInput@5..5");
  Stream stream;
  ASSERT_NO_FATAL_FAILURE(Run({"nvidia", "hevc"}, kActive, stream));
  EXPECT_GE(stream.refusals, 1U);
  EXPECT_GT(stream.memories, 10U);
  for (const auto& [who, road] : stream.roads) {
    EXPECT_THAT(road,
                testing::AnyOf(testing::MatchesRegex("T{0,4}"), testing::MatchesRegex("TTTTxM*")))
        << who;
  }
  EXPECT_GE(conversions_, 1U);
}

}  // namespace
}  // namespace Veldrift
