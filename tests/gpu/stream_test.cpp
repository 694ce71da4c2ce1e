// The whole encoder, over encoders that take Direct3D textures: the way that its pictures go
// doesn't show in the stream.
#include <gmock/gmock.h>

#include "encoder/platform_self_test.h"
#include "tests/encoder_mf/mf_encoder.h"
#include "tests/gpu/gpu_fixture.h"
#include "tests/support/eventually.h"
#include "tests/transforms/client/scenario.h"

namespace Veldrift {
namespace {

constexpr int32_t kWidth = 320;
constexpr int32_t kHeight = 180;
// Fewer than the pool of textures has: the platform takes a texture back when it finds the time,
// and a frame for which there is none is dropped.
constexpr int kFrames = 15;

// Bars that move over a gradient: easy to encode. Near its limits of rate the HEVC encoder decides
// by what its threads have done so far, and doesn't give the same stream twice.
std::vector<uint8_t> PictureAt(int frame) {
  std::vector<uint8_t> picture(size_t{kWidth} * kHeight * 4);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      uint8_t* const pixel = &picture[static_cast<size_t>(y * kWidth + x) * 4];
      pixel[0] = static_cast<uint8_t>(x * 3 / 4);
      pixel[1] = static_cast<uint8_t>(y + frame);
      pixel[2] = (x + frame * 4) / 32 % 2 != 0 ? 200 : 40;
    }
  }
  return picture;
}

struct Unit {
  std::vector<uint8_t> data;
  bool keyFrame;
  uint64_t timestamp;
  bool operator==(const Unit&) const = default;
};

class StreamTest : public testing::Test {
 protected:
  // What an encoder of that kind makes of the frames. Each frame waits for the output of the one
  // before, since an asynchronous encoder drops what comes faster than it can take it.
  std::vector<Unit> Encode(const std::string& kind, int32_t codec) {
    scenario_.Show(kind);
    const auto encoder = MakeEncoder();
    encoder->SetOutputCallback(
        [this](const uint8_t* data, uint64_t size, bool keyFrame, uint64_t timestamp) {
          MutexLock lock(mutex_);
          units_.push_back({{data, data + size}, keyFrame, timestamp});
        });
    encoder->SetCodec(codec);
    encoder->SetGopSize(10);
    EXPECT_TRUE(encoder->Configure(kWidth, kHeight, 20'000'000, 30)) << kind;
    for (int frame = 0; frame < kFrames; ++frame) {
      const std::vector<uint8_t> picture = PictureAt(frame);
      encoder->EncodeFrame(picture.data(), kWidth, kHeight, kWidth * 4,
                           static_cast<uint64_t>(frame) * 1000);
      const bool came = Eventually([&] { return Count() > static_cast<size_t>(frame); });
      EXPECT_TRUE(came) << kind << ", frame " << frame;
      if (!came) break;
    }
    encoder->Shutdown();
    MutexLock lock(mutex_);
    return std::exchange(units_, {});
  }

  std::unique_ptr<IHardwareEncoder> MakeEncoder() const {
    return std::make_unique<EncoderShell>(
        [this]() -> std::unique_ptr<EncoderBackend> {
          return std::make_unique<TransformBackend>(TransformBackend::Environment{
              std::make_unique<MfPlatform>(libraries_), [] { return true; }, SystemClock()});
        },
        "auto");
  }

  size_t Count() {
    MutexLock lock(mutex_);
    return units_.size();
  }

  size_t TakeLogged(const std::string& text) {
    const std::string log = ReadPluginLog();
    const std::string news = log.substr(logRead_);
    logRead_ = log.size();
    return CountIn(news, text);
  }

  Transforms::Scenario scenario_;
  MfLibraries libraries_ = MfLibraries::OfProcess();

 private:
  size_t logRead_ = ReadPluginLog().size();
  Mutex mutex_;
  std::vector<Unit> units_ VD_GUARDED_BY(mutex_);
};

using Stream = StreamTest;

TEST_F(Stream, IsTheSameByEveryWayOfAPicture) {
  for (const std::string way : {"", "-async"}) {
    for (const int32_t codec : {kCodecH264, kCodecHevc}) {
      const std::string what = way + (codec == kCodecHevc ? " HEVC" : " H.264");
      TakeLogged("");
      const std::vector<Unit> resident = Encode("nvidia" + way, codec);
      EXPECT_EQ(TakeLogged("GPU-resident status: ACTIVE (allocator ready; "), 1u) << what;
      const std::vector<Unit> readBack = Encode("amd" + way, codec);
      EXPECT_EQ(TakeLogged("Step 4 GPU BGRA→NV12 ENABLED: 320x180"), 1u) << what;

      libraries_.direct3d.reset();
      const std::vector<Unit> plain = Encode("nvidia" + way, codec);
      EXPECT_EQ(TakeLogged("Step 4 GPU BGRA→NV12 ENABLED"), 0u) << what;
      libraries_ = MfLibraries::OfProcess();

      EXPECT_EQ(plain.size(), size_t{kFrames}) << what;
      EXPECT_TRUE(resident == plain) << what;
      EXPECT_TRUE(readBack == plain) << what;
    }
  }
}

// The transform refuses its fifth picture in a texture: the CPU goes on, with a key frame.
TEST_F(Stream, GoesOnByTheCpuWhereATextureIsRefused) {
  scenario_.Show("nvidia");
  scenario_.Traits("fail=ProcessInput@5..5");
  TakeLogged("");
  const auto encoder = MakeEncoder();
  std::vector<bool> keyFrames;
  encoder->SetOutputCallback(
      [&](const uint8_t*, uint64_t, bool keyFrame, uint64_t) { keyFrames.push_back(keyFrame); });
  encoder->SetCodec(kCodecH264);
  encoder->SetGopSize(100);
  ASSERT_TRUE(encoder->Configure(kWidth, kHeight, 20'000'000, 30));
  for (int frame = 0; frame < 7; ++frame) {
    encoder->EncodeFrame(PictureAt(frame).data(), kWidth, kHeight, kWidth * 4, 0);
  }
  EXPECT_THAT(keyFrames, testing::ElementsAre(true, false, false, false, true, false));
  EXPECT_EQ(
      TakeLogged("[BigOne] ProcessInput(D3D sample) failed E_FAIL (0x80004005) — latching CPU "
                 "fallback"),
      1u);
}

TEST_F(Stream, TheSelfTestSeesThatPicturesStayOnTheAdapter) {
  scenario_.Show("nvidia");
  std::string result;
  EXPECT_TRUE(RunPlatformEncoderSelfTest("P6.2", result));
  EXPECT_EQ(result,
            "GPU-resident ACTIVE — ACTIVE (allocator ready; MF_SA_D3D11_AWARE=yes, D3D mgr "
            "accepted)");
}

}  // namespace
}  // namespace Veldrift
