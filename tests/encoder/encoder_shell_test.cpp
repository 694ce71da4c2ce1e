// What the encoder decides by itself, over a codec that is a script.
#include "encoder/encoder_shell.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/scratch.h"
#include "tests/support/scripted_backend.h"

namespace Veldrift {
namespace {

using Calls = std::vector<std::string>;

class EncoderShellTest : public testing::Test {
 protected:
  EncoderShellTest() {
    encoder_->SetOutputCallback([this](const uint8_t*, uint64_t, bool keyFrame, uint64_t) {
      keys_ += keyFrame ? 'K' : '.';
    });
  }
  void Configure(int32_t gopSize = 100) {
    encoder_->SetGopSize(gopSize);
    ASSERT_TRUE(encoder_->Configure(64, 48, 2'000'000, 30));
    script_->TakeCalls();
  }
  void Push(int32_t width = 64, int32_t height = 48) {
    const std::vector<uint8_t> picture(size_t(width) * size_t(height) * 4);
    encoder_->EncodeFrame(picture.data(), uint32_t(width), uint32_t(height), width * 4, 1);
  }
  void Script(const std::function<void(BackendScript::Behaviour&)>& change) {
    script_->Change(change);
  }
  Calls Made() { return script_->TakeCalls(); }

  const std::shared_ptr<BackendScript> script_ = std::make_shared<BackendScript>();
  std::unique_ptr<IHardwareEncoder> encoder_ = MakeScriptedShell(script_);
  std::string keys_;
};

TEST_F(EncoderShellTest, ConfigureChecksAndCompletesWhatTheBackendGets) {
  struct Case {
    uint32_t width, height, fps;
  };
  for (const Case& c : {Case{15, 64, 30}, Case{64, 15, 30}, Case{64, 64, 0}}) {
    EXPECT_FALSE(encoder_->Configure(c.width, c.height, 1, c.fps));
    EXPECT_FALSE(encoder_->Ready());
  }
  EXPECT_EQ(Made(), Calls{});
  encoder_->SetCodec(kCodecH264);
  encoder_->SetGopSize(0);
  encoder_->SetRateControl(kRateControlVbr, 7.0F);
  encoder_->SetFrameByteCap(5);
  ASSERT_TRUE(encoder_->Configure(16, 17, 0, 1));
  const EncoderPlan plan = script_->LastPlan();
  EXPECT_EQ(plan.codec, kCodecH264);
  EXPECT_EQ(plan.width, 16);
  EXPECT_EQ(plan.height, 17);
  EXPECT_EQ(plan.fps, 1);
  EXPECT_EQ(plan.gopSize, 1);
  EXPECT_EQ(plan.bitrate, 15'000'000U);
  EXPECT_EQ(plan.maxBitrate, 19'500'000U);
  EXPECT_EQ(plan.quality, 1.0F);
  EXPECT_EQ(plan.frameByteCap, 100'000U);
  EXPECT_EQ(plan.engineId, "auto");
  EXPECT_EQ(encoder_->GetDescription(), "scripted [SW, 16x17 H.264 @ 1 fps, 15 Mbps]");
}

// The sizes are copied before the codec that has them is torn down.
TEST_F(EncoderShellTest, OnlyAChangedSettingRebuildsAndWithTheSameSizes) {
  struct Case {
    const char* what;
    std::function<void(IHardwareEncoder&)> set;
    bool rebuilds;
  };
  const Case cases[] = {
      {"same codec", [](auto& e) { e.SetCodec(kCodecHevc); }, false},
      {"codec", [](auto& e) { e.SetCodec(kCodecH264); }, true},
      {"same GOP", [](auto& e) { e.SetGopSize(100); }, false},
      {"GOP", [](auto& e) { e.SetGopSize(5); }, true},
      {"quality, hardly", [](auto& e) { e.SetRateControl(kRateControlBitrate, 0.754F); }, false},
      {"quality", [](auto& e) { e.SetRateControl(kRateControlBitrate, 0.76F); }, true},
      {"mode", [](auto& e) { e.SetRateControl(kRateControlVbr, 0.76F); }, true},
      {"cap", [](auto& e) { e.SetFrameByteCap(1'000'000); }, false},
  };
  Configure();
  for (const Case& c : cases) {
    c.set(*encoder_);
    EXPECT_EQ(Made(), c.rebuilds ? (Calls{"Close", "Open 64x48"}) : Calls{}) << c.what;
    EXPECT_EQ(script_->LastPlan().fps, 30) << c.what;
    EXPECT_EQ(script_->LastPlan().bitrate, 2'000'000U) << c.what;
  }
}

TEST_F(EncoderShellTest, LiveSettersReachTheCodecAsTheyShould) {
  Configure();
  encoder_->SetBitrate(2'000'000);
  encoder_->SetPeakBitrate(9'000'000);  // in VBR only
  encoder_->SetHrdBufferBits(0, 5);
  encoder_->SetHrdBufferBits(5, 0);
  EXPECT_EQ(Made(), Calls{});
  encoder_->SetBitrate(3'000'000);
  EXPECT_EQ(Made(), Calls{"SetMeanRate 3000000"});
  encoder_->SetHrdBufferBits(3'000'000'000, 3'000'000'000);
  EXPECT_EQ(Made(), (Calls{"SetMeanRate 3000000000", "SetMaxRate 4000000000"}));
  EXPECT_EQ(encoder_->GetBitrate(), 3'000'000U);
  encoder_->SetQualityMode(0.5F);  // stored
  EXPECT_EQ(Made(), Calls{});

  encoder_->SetRateControl(kRateControlVbr, 0.5F);
  EXPECT_EQ(script_->LastPlan().peakBitrate, 0U);  // none was stored in the other mode
  Made();
  encoder_->SetPeakBitrate(1'000'000);  // never below the mean
  encoder_->SetPeakBitrate(5'000'000);
  EXPECT_EQ(Made(), (Calls{"SetMaxRate 3000000", "SetMaxRate 5000000"}));

  encoder_->SetRateControl(kRateControlQuality, 0.5F);
  Made();
  encoder_->SetQualityMode(0.504F);
  encoder_->SetQualityMode(0.6F);
  EXPECT_EQ(Made(), Calls{"SetQuality 600"});
}

TEST_F(EncoderShellTest, ACodecThatTakesNoChangesGetsThemAtTheNextOpening) {
  Script([](auto& now) { now.takesChanges = false; });
  Configure();
  encoder_->SetBitrate(3'000'000);
  encoder_->SetHrdBufferBits(1'000, 1'000);
  encoder_->SetQualityMode(0.9F);
  EXPECT_EQ(Made(), Calls{});
  encoder_->SetGopSize(5);
  EXPECT_EQ(script_->LastPlan().bitrate, 3'000'000U);
  EXPECT_EQ(script_->LastPlan().quality, 0.9F);
}

TEST_F(EncoderShellTest, EmergencyThenKeyFrameThenInput) {
  Configure();
  Push();
  encoder_->TriggerEmergencyCompression(2);
  for (int i = 0; i < 3; ++i) Push();
  EXPECT_EQ(Made(),
            (Calls{"TakeIn 64x48", "Submit key", "TakeIn 64x48 emergency", "Submit key emergency",
                   "TakeIn 64x48 emergency", "Submit emergency", "TakeIn 64x48", "Submit"}));
  EXPECT_EQ(keys_, "KK..");
}

// Neither the request nor the emergency is used up by a frame that nobody encoded.
TEST_F(EncoderShellTest, AFrameThatFailsLeavesItsKeyFrameToTheNext) {
  struct Case {
    const char* what;
    std::function<void(BackendScript::Behaviour&)> fail;
    bool usesEmergencyUp;
  };
  const Case cases[] = {
      {"dropped", [](auto& now) { now.intake = EncoderBackend::Intake::Dropped; }, false},
      {"not submitted", [](auto& now) { now.failSubmit = true; }, true},
      {"thrown", [](auto& now) { now.throwInSubmit = true; }, true},
  };
  for (const Case& c : cases) {
    Script([](auto& now) { now = {}; });
    Configure();
    Push();
    encoder_->TriggerEmergencyCompression(1);
    Script(c.fail);
    try {
      Push();
    } catch (const std::exception&) {
    }
    Script([](auto& now) { now = {}; });
    Made();
    Push();
    EXPECT_EQ(Made().back(), c.usesEmergencyUp ? "Submit key" : "Submit key emergency") << c.what;
    EXPECT_TRUE(encoder_->Ready()) << c.what;
  }
}

TEST_F(EncoderShellTest, ACodecThatWasOpenedAnewStartsWithAKeyFrame) {
  Configure();
  Push();
  Push();
  Script([](auto& now) { now.intake = EncoderBackend::Intake::TakenNew; });
  Push();
  EXPECT_EQ(keys_, "K.K");
}

// Frames must not vanish in an encoder that says it is Ready.
TEST_F(EncoderShellTest, ACodecThatIsLostLeavesItNotReady) {
  struct Case {
    const char* what;
    std::function<void(BackendScript::Behaviour&)> fail;
    std::function<void()> provoke;
  };
  const auto push = [this] { Push(); };
  const auto rebuild = [this] { encoder_->SetGopSize(3); };
  const Case cases[] = {
      {"failed frame", [](auto& now) { now.intake = EncoderBackend::Intake::Failed; }, push},
      {"thrown frame", [](auto& now) { now.throwInTakeIn = true; }, push},
      {"failed opening", [](auto& now) { now.failOpen = true; }, rebuild},
      {"thrown opening", [](auto& now) { now.throwInOpen = true; }, rebuild},
  };
  for (const Case& c : cases) {
    Script([](auto& now) { now = {}; });
    Configure();
    Script(c.fail);
    try {
      c.provoke();
    } catch (const std::exception&) {
    }
    EXPECT_FALSE(encoder_->Ready()) << c.what;
    EXPECT_EQ(encoder_->GetWidth(), 0) << c.what;
    EXPECT_EQ(encoder_->GetDescription(), "") << c.what;
    Made();
    Push();
    EXPECT_EQ(Made(), Calls{}) << c.what;
  }
}

TEST_F(EncoderShellTest, FramesAreCheckedAndScaled) {
  Configure();
  const std::vector<uint8_t> picture(size_t{64} * 48 * 4);
  encoder_->EncodeFrame(nullptr, 64, 48, 256, 1);
  encoder_->EncodeFrame(picture.data(), 0, 48, 256, 1);
  encoder_->EncodeFrame(picture.data(), 64, 0, 256, 1);
  encoder_->EncodeFrame(picture.data(), 64, 48, 0, 1);
  encoder_->EncodeFrame(picture.data(), 64, 48, 255, 1);  // the last row would end too late
  encoder_->EncodeFrame(picture.data(), 0x40000000, 1, 4, 1);
  EXPECT_EQ(Made(), Calls{});
  Push(100, 30);
  EXPECT_EQ(Made(), (Calls{"TakeIn 64x48", "Submit key"}));
}

TEST_F(EncoderShellTest, TheDescriptionSaysTheRateInForce) {
  Script([](auto& now) { now.mostBitrate = 9'900'000; });
  ASSERT_TRUE(encoder_->Configure(64, 48, 150'000'000, 30));
  EXPECT_EQ(encoder_->GetDescription(), "scripted [SW, 64x48 HEVC @ 30 fps, 9 Mbps]");
  EXPECT_EQ(encoder_->GetBitrate(), 150'000'000U);
}

// A setter rebuilds under locks of its caller's that the callback takes: what the old codec still
// gives goes out later.
TEST_F(EncoderShellTest, WhatAClosingCodecGivesGoesOutWithTheNextFrameOrTheShutdown) {
  Script([](auto& now) { now.unitAtClose = true; });
  Configure();
  Push();
  encoder_->SetGopSize(7);
  EXPECT_EQ(keys_, "K");
  Push();
  EXPECT_EQ(keys_, "K.K");
  encoder_->Shutdown();
  EXPECT_EQ(keys_, "K.K.");
}

TEST_F(EncoderShellTest, ACallbackThatThrowsHarmsNobody) {
  Configure();
  int calls = 0;
  encoder_->SetOutputCallback([&](const uint8_t*, uint64_t, bool, uint64_t) {
    ++calls;
    throw std::runtime_error("callback");
  });
  Push();
  Push();
  EXPECT_EQ(calls, 2);
  encoder_->Shutdown();  // nobody is thought to be emitting still
}

TEST_F(EncoderShellTest, ACloneTakesItsSettingsAsTheyStand) {
  EncoderSettings settings;
  settings.width = 32;
  settings.height = 32;
  settings.gopSize = -1;
  settings.codec = kCodecH264;
  settings.rateControl = kRateControlVbr;
  settings.bitrate = 1'000'000;
  settings.peakBitrate = 1'700'000;
  settings.quality = 0.3F;
  settings.frameByteCap = 50;
  const std::unique_ptr<IHardwareEncoder> clone = encoder_->Clone(settings);
  ASSERT_TRUE(clone);
  const EncoderPlan plan = script_->LastPlan();
  EXPECT_EQ(plan.gopSize, 1);
  EXPECT_EQ(plan.maxBitrate, 1'700'000U);
  EXPECT_EQ(plan.quality, 0.3F);
  EXPECT_EQ(plan.frameByteCap, 50U);
  settings.frameByteCap = 0;
  EXPECT_EQ(encoder_->Clone(settings)->GetFrameByteCap(), 340'000U);
  Script([](auto& now) { now.failOpen = true; });
  EXPECT_FALSE(encoder_->Clone(settings));
}

}  // namespace
}  // namespace Veldrift
