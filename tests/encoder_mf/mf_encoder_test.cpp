// The Media Foundation encoder over real encoders that behave and misbehave.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "encoder/annex_b.h"
#include "encoder/bgra_to_nv12.h"
#include "encoder/engine_catalogue.h"
#include "encoder/platform_self_test.h"
#include "platform/mutex.h"
#include "tests/encoder_mf/mf_encoder.h"
#include "tests/support/eventually.h"
#include "tests/support/scratch.h"
#include "tests/transforms/client/decoder.h"
#include "tests/transforms/client/scenario.h"

namespace Veldrift {
namespace {

using Texts = std::vector<std::string>;

constexpr int32_t kWidth = 208;
constexpr int32_t kHeight = 144;

// Moving bars over a gradient.
std::vector<uint8_t> PictureAt(int frame) {
  std::vector<uint8_t> picture(size_t{kWidth} * kHeight * 4);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      uint8_t* const pixel = &picture[size_t(y * kWidth + x) * 4];
      pixel[0] = uint8_t(x);
      pixel[1] = uint8_t(y + frame);
      pixel[2] = (x + frame * 4) / 32 % 2 ? 200 : 40;
    }
  }
  return picture;
}

struct Unit {
  std::vector<uint8_t> data;
  bool keyFrame;
  uint64_t timestamp;
};

// What decoding the whole stream came to, beside what was pushed.
struct Seen {
  int pictures = 0;
  int damaged = 0;
  int wrongColour = 0;  // don't say BT.709, limited range
  double worstPsnr = 99;
};

void WINAPI Look(void* state, const Transforms::DecodedPicture* picture) {
  Seen& seen = *static_cast<Seen*>(state);
  std::vector<uint8_t> luma(size_t{kWidth} * kHeight), chroma(luma.size() / 2);
  const std::vector<uint8_t> pushed = PictureAt(seen.pictures++);
  ConvertBgraToNv12Scalar(pushed.data(), kWidth * 4, luma.data(), chroma.data(), kWidth, kHeight);
  seen.damaged += picture->damaged || picture->width != kWidth || picture->height != kHeight;
  seen.wrongColour += !picture->bt709Limited;
  double sum = 0.1;
  for (int y = 0; y < kHeight && !seen.damaged; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const int off =
          picture->planes[0][y * picture->strides[0] + x] - luma[size_t(y * kWidth + x)];
      sum += off * off;
    }
  }
  seen.worstPsnr =
      std::min(seen.worstPsnr, 10 * std::log10(255.0 * 255.0 * kWidth * kHeight / sum));
}

class MfEncoderTest : public testing::Test {
 protected:
  void Make(const std::string& kinds, const std::string& traits = "",
            const std::string& engineId = "auto", bool allowAsynchronous = true) {
    if (encoder_) encoder_->Shutdown();
    asynchronous_ = kinds.find("-async") != std::string::npos;
    scenario_.Show(kinds);
    scenario_.Traits(traits);
    scenario_.ForgetTrace();
    encoder_ = MakeTestedEncoder(engineId, allowAsynchronous);
    encoder_->SetOutputCallback(
        [this](const uint8_t* data, uint64_t size, bool keyFrame, uint64_t timestamp) {
          MutexLock lock(mutex_);
          units_.push_back({{data, data + size}, keyFrame, timestamp});
        });
    MutexLock lock(mutex_);
    units_.clear();
  }
  bool Configure(int32_t codec, int32_t gopSize = 100) {
    encoder_->SetCodec(codec);
    encoder_->SetGopSize(gopSize);
    return encoder_->Configure(kWidth, kHeight, 4'000'000, 30);
  }
  void Push(int frame) {
    const std::vector<uint8_t> picture = PictureAt(frame);
    encoder_->EncodeFrame(picture.data(), kWidth, kHeight, kWidth * 4, frame * 1'000 + 7);
  }
  size_t Count() {
    MutexLock lock(mutex_);
    return units_.size();
  }
  // Frames at the encoder's pace, which drops what comes too fast if it is asynchronous; what has
  // come out of them.
  std::vector<Unit> Encode(int first, int count) {
    for (int frame = first; frame < first + count; ++frame) {
      const size_t before = Count();
      Push(frame);
      if (!asynchronous_) continue;
      EXPECT_TRUE(Eventually([&] { return Count() > before; })) << frame;
    }
    return Units();
  }
  std::vector<Unit> Units() {
    MutexLock lock(mutex_);
    return units_;
  }
  Seen Decode(const std::vector<Unit>& units, int32_t codec) {
    std::vector<uint8_t> stream;
    for (const Unit& unit : units) stream.insert(stream.end(), unit.data.begin(), unit.data.end());
    Seen seen;
    const Transforms::DecodeFunction decode = Transforms::FindDecoder();
    if (!decode || decode(codec == kCodecHevc, stream.data(), stream.size(), &Look, &seen) < 0) {
      seen.damaged = -1;
    }
    return seen;
  }
  size_t Logged(const std::string& line) {
    return CountIn(ReadPluginLog().substr(logStart_), line);
  }

  const size_t logStart_ = ReadPluginLog().size();
  Transforms::Scenario scenario_;
  bool asynchronous_ = false;
  Mutex mutex_;
  std::vector<Unit> units_ VD_GUARDED_BY(mutex_);
  std::unique_ptr<IHardwareEncoder> encoder_;
};

// In whatever form the encoder gives sets and units, the phone gets whole pictures, and could join
// at each key frame.
TEST_F(MfEncoderTest, EveryFormOfOutputBecomesOneStream) {
  struct Case {
    std::string kind;
    int32_t codec;
    std::string traits;
  };
  const Case cases[] = {
      {"software", kCodecHevc, ""},
      {"software", kCodecH264, "header=none times=no"},
      {"nvidia", kCodecH264, "header=annexb sets-in-stream=no"},
      {"nvidia", kCodecHevc, "header=record sets-in-stream=no units=lengths lead=256"},
      {"intel", kCodecH264, "header=record units=lengths lead=480 provides=yes pieces=3"},
      {"intel", kCodecHevc, "header=none units=lengths lead=300"},
      {"amd", kCodecHevc, "header=annexb sets-in-stream=no clean-point=no"},
      {"amd", kCodecH264, "late-header=yes sets-in-stream=no changes=1"},
      {"intel", kCodecHevc, "changes=8@3"},
      {"intel", kCodecH264, "refuse=4"},
      {"other", kCodecH264, "output-size=0 nv12=later"},
      {"other", kCodecHevc, "nv12=none"},
      {"nvidia-async", kCodecHevc, "header=record units=lengths lead=300 sets-in-stream=no"},
      {"nvidia-async", kCodecH264, "provides=no credits=1"},
      {"intel-async", kCodecHevc, "changes=2@3 pieces=2"},
      {"amd-async", kCodecH264, "late-header=yes sets-in-stream=no changes=1"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.kind + " " + std::to_string(c.codec) + " " + c.traits);
    Make(c.kind, "own-gop=no " + c.traits);
    ASSERT_TRUE(Configure(c.codec, 4));
    const std::vector<Unit> units = Encode(0, 12);
    ASSERT_EQ(units.size(), 12U);
    std::string keys;
    for (size_t i = 0; i < units.size(); ++i) {
      keys += units[i].keyFrame ? 'K' : '.';
      EXPECT_EQ(units[i].timestamp, i * 1'000 + 7);
      EXPECT_EQ(units[i].keyFrame, !FindParameterSets(units[i].data, c.codec).empty()) << i;
    }
    EXPECT_EQ(keys, "K....K....K.");
    const Seen seen = Decode(units, c.codec);
    EXPECT_EQ(seen.pictures, 12);
    EXPECT_EQ(seen.damaged, 0);
    EXPECT_EQ(seen.wrongColour, 0);
    EXPECT_GT(seen.worstPsnr, 35);
    // From the second key frame on, as a phone that joins there.
    Seen joined;
    joined.pictures = 5;
    std::vector<uint8_t> rest;
    for (size_t i = 5; i < 12; ++i) {
      rest.insert(rest.end(), units[i].data.begin(), units[i].data.end());
    }
    Transforms::FindDecoder()(c.codec == kCodecHevc, rest.data(), rest.size(), &Look, &joined);
    EXPECT_EQ(joined.pictures, 12);
    EXPECT_EQ(joined.damaged, 0);
  }
}

// An encoder that holds frames back gives each its own time, and none to the next stream.
TEST_F(MfEncoderTest, FramesThatAreHeldBackKeepTheirTimes) {
  for (const std::string kind : {"software", "nvidia-async"}) {
    Make(kind, "delay=2 credits=6");
    ASSERT_TRUE(Configure(kCodecH264));
    for (int frame = 0; frame < 6; ++frame) {
      Push(frame);
      const size_t due = size_t(std::max(frame - 1, 0));
      EXPECT_TRUE(Eventually([&] { return Count() >= due; })) << kind << frame;
    }
    ASSERT_TRUE(Configure(kCodecH264));  // the asynchronous one is drained
    Push(50);
    Push(51);
    Push(52);
    const size_t expected = kind == "software" ? 5 : 7;
    ASSERT_TRUE(Eventually([&] { return Count() >= expected; })) << kind << Count();
    const std::vector<Unit> units = Units();
    for (size_t i = 0; i + 1 < units.size(); ++i) EXPECT_EQ(units[i].timestamp, i * 1'000 + 7);
    EXPECT_EQ(units.back().timestamp, 50'007U);
    EXPECT_TRUE(units.back().keyFrame);
  }
}

TEST_F(MfEncoderTest, TheSettingsReachTheEncoderInTheirOrder) {
  Make("nvidia");
  encoder_->SetRateControl(kRateControlVbr, 0.5F);
  ASSERT_TRUE(Configure(kCodecHevc));
  const Texts atOpening = {"LowLatencyMode 1",    "CommonRealTime 1",   "RateControlMode 1",
                           "MeanBitRate 4000000", "MaxBitRate 5200000", "Quality 50",
                           "GOPSize 100",         "BPictureCount 0"};
  EXPECT_EQ(scenario_.PropertiesSet(), atOpening);
  scenario_.ForgetTrace();
  encoder_->SetBitrate(3'000'000);
  encoder_->SetPeakBitrate(1'000'000);
  encoder_->TriggerEmergencyCompression(1);
  Encode(0, 2);
  EXPECT_EQ(scenario_.PropertiesSet(), (Texts{"MeanBitRate 3000000", "MaxBitRate 3000000",
                                              "VideoEncodeQP 51", "VideoForceKeyFrame 1"}));
  EXPECT_EQ(Logged("SetPeakBitrate: max=3000000 bps (mean=3000000, ratio=1.00)"), 1U);
}

// Encoders differ in the type that they take the quantiser in.
TEST_F(MfEncoderTest, AQuantiserThatIsRefusedIsSetInItsOtherForm) {
  Make("intel");
  scenario_.Traits("fail=VideoEncodeQP@1..1");
  ASSERT_TRUE(Configure(kCodecH264));
  encoder_->TriggerEmergencyCompression(1);
  Encode(0, 1);
  EXPECT_EQ(scenario_.Calls("SetValue").size(), 8U + 2U + 1U);
}

TEST_F(MfEncoderTest, AnAsynchronousTransformIsShutDownBeforeItIsReleased) {
  for (const std::string kind : {"nvidia-async", "nvidia"}) {
    Make(kind);
    ASSERT_TRUE(Configure(kCodecH264));
    Encode(0, 2);
    encoder_->Shutdown();
    EXPECT_EQ(scenario_.Calls("Shutdown").size(), kind == "nvidia-async" ? 1U : 0U);
  }
}

TEST_F(MfEncoderTest, TheSearchGoesByClassEngineAndLeave) {
  struct Case {
    std::string kinds, engine;
    bool allowAsynchronous;
    std::string traits;
    std::string description;
  };
  const Case cases[] = {
      {"software,intel,nvidia", "auto", true, "",
       "Scripted software"},  // listed first of the class
      {"intel,nvidia,software", "nvidia", true, "", "Scripted NVIDIA H.264"},
      {"intel,software", "nvidia", true, "", "Scripted Intel"},
      {"intel,software", "software", true, "", "Scripted software"},
      {"nvidia-async,software", "auto", true, "", "Scripted NVIDIA asynchronous"},
      {"nvidia-async,software", "auto", false, "", "Scripted software"},
      {"amd,software", "auto", true, "fail=SetOutputType@1..1", "Scripted software"},
      {"nvidia-async,software", "auto", true, "fail=IMFMediaEventGenerator", ""},
      {"software", "auto", true, "fail=ActivateObject", ""},
      {"none", "auto", true, "", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.kinds + " " + c.engine + " " + c.traits);
    Make(c.kinds, "", c.engine, c.allowAsynchronous);
    scenario_.TraitsOf(c.kinds.substr(0, c.kinds.find(',')), c.traits);
    EXPECT_EQ(Configure(kCodecH264), !c.description.empty());
    EXPECT_EQ(encoder_->GetDescription().substr(0, c.description.size()), c.description);
    EXPECT_EQ(encoder_->GetDescription().empty(), c.description.empty());
  }
}

TEST_F(MfEncoderTest, WhatThePlatformRefusesIsAnEncoderThatIsntReady) {
  for (const std::string failure :
       {"MFStartup", "MFTEnumEx", "MFCreateMediaType", "MFCreateSample", "MFCreateMemoryBuffer"}) {
    SCOPED_TRACE(failure);
    scenario_.FailPlatform("fail=" + failure);
    Make("software");
    EXPECT_FALSE(Configure(kCodecH264));
    EXPECT_FALSE(encoder_->Ready());
    Push(0);
    scenario_.FailPlatform("");
    if (failure == "MFStartup") {
      Make("software");  // the layer is started when an encoder is made
    }
    EXPECT_TRUE(Configure(kCodecH264));
    EXPECT_EQ(Encode(0, 1).size(), 1U);
  }
}

// The frame's own failures cost the frame; the encoder goes on, with a key frame where one was
// owed.
TEST_F(MfEncoderTest, FailuresInTheMiddleCostFramesAndNotTheEncoder) {
  struct Case {
    std::string kind, traits, keys;
  };
  const Case cases[] = {
      {"software", "fail=ProcessInput@1..1", "lK..."},
      {"software", "fail=ProcessInput@3..3", "K.l.."},
      {"intel", "fail=GetOutputStreamInfo@1..1", "lK..."},
      {"nvidia-async", "fail=ProcessInput@1..1", "lK..."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.kind + " " + c.traits);
    Make(c.kind, c.traits);
    ASSERT_TRUE(Configure(kCodecH264));
    for (int frame = 0; frame < 5; ++frame) {
      const size_t before = Count();
      Push(frame);
      if (c.keys[size_t(frame)] == 'l') continue;
      EXPECT_TRUE(Eventually([&] { return Count() > before; })) << frame;
    }
    EXPECT_GE(Count(), 4U);
    EXPECT_TRUE(Units().front().keyFrame);
  }
}

// A device that is taken away, an encoder that stalls: nothing hangs, and a new Configure has a
// working one.
TEST_F(MfEncoderTest, OneThatDiesOrStallsIsReplacedByTheNextConfigure) {
  for (const std::string kind : {"nvidia", "nvidia-async"}) {
    for (const std::string traits : {"die=2", "stall=2", "die=2 drains=no"}) {
      SCOPED_TRACE(kind + " " + traits);
      Make(kind, traits);
      ASSERT_TRUE(Configure(kCodecHevc));
      Encode(0, 2);
      for (int frame = 2; frame < 6; ++frame) Push(frame);
      scenario_.Traits("");
      ASSERT_TRUE(Configure(kCodecHevc));
      const size_t before = Count();
      Push(9);
      EXPECT_TRUE(Eventually([&] { return Count() > before; }));
      EXPECT_TRUE(Units().back().keyFrame);
    }
  }
}

TEST_F(MfEncoderTest, TheCatalogueShowsTheMakersOfEitherCodec) {
  struct Case {
    std::string kinds;
    Texts ids;
    std::string note;
  };
  const std::string plain = "CPU encoder (Media Foundation software MFT)";
  const std::string warning =
      "No hardware encoder detected. Using CPU — expect higher CPU load and lower quality.";
  for (const Case& c :
       {Case{"software", {"software"}, warning}, Case{"other,software", {"software"}, plain},
        Case{"amd-hevc,intel-async-h264,nvidia,software",
             {"nvidia", "intel", "amd", "software"},
             plain}}) {
    scenario_.Show(c.kinds);
    Texts ids;
    const std::vector<EngineEntry> rows = EnumerateEngines();
    for (const EngineEntry& row : rows) ids.push_back(row.id);
    EXPECT_EQ(ids, c.ids) << c.kinds;
    EXPECT_EQ(rows.back().note, c.note) << c.kinds;
  }
  scenario_.FailPlatform("fail=MFStartup");
  EXPECT_EQ(EnumerateEngines().size(), 1U);
}

TEST_F(MfEncoderTest, TheResidencyTestSaysWhatItFound) {
  std::string result;
  scenario_.Show("none");
  EXPECT_FALSE(RunPlatformEncoderSelfTest("P6.2", result));
  EXPECT_EQ(result,
            "GPU-resident inactive — (no status; encoder unconfigured)  [Configure FAILED — no "
            "encoder MFT]");
  scenario_.Show("software");
  EXPECT_TRUE(RunPlatformEncoderSelfTest("P6.2", result));
  EXPECT_EQ(result.find("GPU-resident inactive — off (auto-default is NVIDIA-only"), 0U) << result;
  EXPECT_TRUE(RunPlatformEncoderSelfTest("P6.1", result));
  EXPECT_TRUE(result.starts_with("callback set/invoke race ok: sets=")) << result;
  EXPECT_TRUE(result.ends_with("; MFStartup balance ok (no crash/underflow)")) << result;
}

}  // namespace
}  // namespace Veldrift
