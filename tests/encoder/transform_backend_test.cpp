// What an encoder over transforms does, call by call.
#include "encoder/transform_backend.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "encoder/hardware_encoder.h"
#include "tests/support/eventually.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scratch.h"
#include "tests/support/scripted_transform.h"

namespace Veldrift {
namespace {

using Calls = std::vector<std::string>;
using Output = EncoderTransform::Output;
using Answer = Output::Answer;

constexpr int32_t kWidth = 64;
constexpr int32_t kHeight = 48;

class TransformBackendTest : public testing::Test {
 protected:
  TransformBackendTest() {
    encoder_->SetOutputCallback([this](const uint8_t*, uint64_t size, bool keyFrame, uint64_t at) {
      units_ += (keyFrame ? "K" : ".") + std::to_string(at) + " ";
      unitBytes_ = size;
    });
    encoder_->SetCodec(kCodecH264);
    encoder_->SetGopSize(100);
  }
  void Script(const std::function<void(TransformScript::Behaviour&)>& change) {
    script_->Change(change);
  }
  void Transform(const std::function<void(ScriptedTransformTraits&)>& change) {
    Script([&](auto& now) { change(now.transforms[0]); });
  }
  bool Configure() {
    script_->TakeCalls();
    return encoder_->Configure(kWidth, kHeight, 2'000'000, 30);
  }
  void Start() {
    ASSERT_TRUE(Configure());
    script_->TakeCalls();
  }
  void Push(int64_t time = 1) {
    const std::vector<uint8_t> picture(size_t{kWidth} * kHeight * 4);
    encoder_->EncodeFrame(picture.data(), kWidth, kHeight, kWidth * 4, time);
  }
  Calls Made(const Calls& words = {}) { return script_->TakeCalls(words); }
  // How often the line has been written in this test.
  size_t Logged(const std::string& line) {
    return CountIn(ReadPluginLog().substr(logStart_), line);
  }

  const size_t logStart_ = ReadPluginLog().size();
  const std::shared_ptr<TransformScript> script_ = std::make_shared<TransformScript>();
  ManualClock clock_;
  std::unique_ptr<IHardwareEncoder> encoder_ = MakeTransformEncoder(script_, "intel", clock_);
  std::string units_;
  uint64_t unitBytes_ = 0;
};

TEST_F(TransformBackendTest, OpensInOneOrderAndClosesWithTheDeviceLast) {
  encoder_->SetRateControl(kRateControlVbr, 0.5F);
  Transform([](auto& t) { t.d3d11Aware = true; });
  ASSERT_TRUE(Configure());
  EXPECT_EQ(Made(), (Calls{"AwaitGpu",
                           "CloseDevice",  // of what was there before: nothing
                           "OpenDevice intel",
                           "Activate scripted",
                           "OfferDevice",
                           "SetOutputType 1 64x48@30 2000000",
                           "SetInputType 64x48 0",
                           "LowLatency 1",
                           "RealTime 1",
                           "RateControlMode 1",
                           "MeanBitRate 2000000",
                           "MaxBitRate 2600000",
                           "Quality 50",
                           "GopSize 100",
                           "BPictureCount 0",
                           "SequenceHeader",
                           "SetUpResident scripted onGpu aware",
                           "Flush",
                           "BeginStreaming",
                           "StartOfStream"}));
  EXPECT_EQ(encoder_->GetDescription(), "scripted [HW, 64x48 H.264 @ 30 fps, 2 Mbps]");
  EXPECT_EQ(Logged("Configure OK: 64x48 @ 30 fps, 2000000 bps, codec=H264, gop=100, ps=12B"), 1U);
  encoder_->Shutdown();
  EXPECT_EQ(Made(), (Calls{"Flush", "AwaitGpu", "EndOfStream", "EndStreaming", "Release scripted",
                           "AwaitGpu", "CloseDevice"}));
}

TEST_F(TransformBackendTest, AnAsynchronousOneDrainsAndStopsItsEventsBeforeTheEnd) {
  Transform([](auto& t) { t.asynchronous = t.sendsEvents = true; });
  ASSERT_TRUE(Configure());
  EXPECT_EQ(
      Made({"SetUpResident", "OpenEvents", "BeginStreaming", "StartOfStream", "Flush"}),
      (Calls{"SetUpResident scripted onGpu", "OpenEvents", "BeginStreaming", "StartOfStream"}));
  EXPECT_EQ(encoder_->GetDescription(), "scripted [HW-async, 64x48 H.264 @ 30 fps, 2 Mbps]");
  encoder_->Shutdown();
  EXPECT_EQ(Made(), (Calls{"Drain", "Flush", "AwaitGpu", "CloseEvents", "EndOfStream",
                           "EndStreaming", "Release scripted", "AwaitGpu", "CloseDevice"}));
}

TEST_F(TransformBackendTest, ModesAndRatesReachTheCodecByThePlatformsNumbers) {
  struct Case {
    int32_t mode;
    std::string call;
  };
  for (const Case& c :
       {Case{kRateControlQuality, "RateControlMode 3"}, Case{kRateControlVbr, "RateControlMode 1"},
        Case{77, "RateControlMode 0"}, Case{kRateControlBitrate, "RateControlMode 0"}}) {
    encoder_->SetRateControl(c.mode, 0.57F);
    ASSERT_TRUE(Configure());
    EXPECT_EQ(Made({"RateControlMode", "Quality"}), (Calls{c.call, "Quality 57"})) << c.mode;
  }
  encoder_->SetRateControl(kRateControlQuality, 0.57F);
  Made();
  encoder_->SetBitrate(3'000'000);
  encoder_->SetBitrate(3'000'000);
  encoder_->SetPeakBitrate(5'000'000);  // in VBR only
  encoder_->SetQualityMode(0.25F);
  encoder_->SetHrdBufferBits(3'000'000'000, 3'000'000'000);
  EXPECT_EQ(Made(), (Calls{"MeanBitRate 3000000", "Quality 25", "MeanBitRate 3000000000",
                           "MaxBitRate 4000000000"}));
  EXPECT_EQ(Logged("SetQualityMode q=0.25 → CODECAPI_AVEncCommonQuality=25 hr=0x00000000"), 1U);
  Transform([](auto& t) { t.properties = false; });
  Start();
  encoder_->SetBitrate(4'000'000);
  Push();
  EXPECT_EQ(Made({"MeanBitRate", "ForceKeyFrame"}), Calls{});
  EXPECT_EQ(units_.substr(1), "1 ");
}

TEST_F(TransformBackendTest, LargeHevcIsRefusedInSoftwareAlone) {
  struct Case {
    uint32_t width, height;
    int32_t codec;
    bool onGpu, accepted;
  };
  const Case cases[] = {{3000, 2000, kCodecHevc, false, true},
                        {3840, 2160, kCodecHevc, false, false},
                        {3840, 2160, kCodecH264, false, true},
                        {3840, 2160, kCodecHevc, true, true}};
  for (const Case& c : cases) {
    Transform([&](auto& t) { t.takeDevice = c.onGpu ? 0 : transform_error::kFail; });
    encoder_->SetCodec(c.codec);
    script_->TakeCalls();
    EXPECT_EQ(encoder_->Configure(c.width, c.height, 9'000'000, 30), c.accepted) << c.codec;
    if (c.accepted) continue;
    const Calls made = Made({"Activate", "Release", "Flush", "CloseDevice"});
    const auto tried = std::ranges::find(made, "Activate scripted");
    ASSERT_GE(made.end() - tried, 3);
    EXPECT_EQ(Calls(tried, tried + 3),
              (Calls{"Activate scripted", "Release scripted", "CloseDevice"}));
    EXPECT_FALSE(encoder_->Ready());
    EXPECT_EQ(encoder_->GetDescription(), "");
  }
  EXPECT_EQ(Logged("Refusing 3840x2160 on SW HEVC MFT \"scripted\" — above 6.0 MPx cap (HW HEVC "
                   "unavailable: async MFTs not yet supported)"),
            1U);
  EXPECT_EQ(Logged("No encoder MFT accepted our media types (codec=HEVC 3840x2160@30 9000000 bps)"),
            1U);
}

TEST_F(TransformBackendTest, WhatCantBeOpenedLeavesNothingAndTheNextConfigureStartsAfresh) {
  const std::function<void(TransformScript::Behaviour&)> failures[] = {
      [](auto& now) { now.transforms.clear(); },
      [](auto& now) { now.makeSample = transform_error::kFail; },
      [](auto& now) {
        now.transforms[0].asynchronous = true;
        now.transforms[0].openEvents = transform_error::kFail;
      },
  };
  for (const auto& fail : failures) {
    Script(fail);
    EXPECT_FALSE(Configure());
    EXPECT_FALSE(encoder_->Ready());
    EXPECT_EQ(Made().back(), "CloseDevice");
    Script([](auto& now) { now = {}; });
    EXPECT_TRUE(Configure());
  }
  EXPECT_EQ(Logged("MFCreateMemoryBuffer failed 0x80004005"), 1U);
  EXPECT_EQ(Logged("Async MFT setup failed — releasing and falling back"), 1U);
}

TEST_F(TransformBackendTest, AFrameIsFilledTimedOrderedAndGivenInThisOrder) {
  Start();
  Push(7);
  EXPECT_EQ(Made(), (Calls{"Filled 4608", "SetTimes 0+333333", "MarkKeyFrame", "ForceKeyFrame 1",
                           "ProcessInput 0"}));
  encoder_->TriggerEmergencyCompression(1);
  Push(8);
  EXPECT_EQ(Made(), (Calls{"Filled 4608", "SetTimes 333333+333333", "EncodeQp 51", "MarkKeyFrame",
                           "ForceKeyFrame 1", "ProcessInput 333333"}));
  Push(9);
  EXPECT_EQ(Made(), (Calls{"Filled 4608", "SetTimes 666666+333333", "ProcessInput 666666"}));
  EXPECT_EQ(units_, "K7 K8 .9 ");
  Start();  // counts anew, and the first frame is a key frame
  Push(10);
  EXPECT_EQ(Made({"SetTimes", "ForceKeyFrame"}), (Calls{"SetTimes 0+333333", "ForceKeyFrame 1"}));
}

// Its own samples: the mark has to go, and the quantiser is left alone.
TEST_F(TransformBackendTest, AnAsynchronousFrameHasAMarkOfItsOwn) {
  Transform([](auto& t) { t.asynchronous = true; });
  Start();
  for (int i = 0; i < 3; ++i) script_->Send(kEventNeedInput);
  Push();
  encoder_->TriggerEmergencyCompression(1);
  Push();
  Push();
  EXPECT_EQ(Made({"MarkKeyFrame", "ClearMark", "ForceKeyFrame", "EncodeQp", "ProcessInput"}),
            (Calls{"MarkKeyFrame", "ForceKeyFrame 1", "ProcessInput 0", "MarkKeyFrame",
                   "ForceKeyFrame 1", "ProcessInput 333333", "ClearMark", "ProcessInput 666666"}));
  Script([](auto& now) { now.drain = transform_error::kFail; });
  encoder_->Shutdown();
  EXPECT_EQ(Made({"Drain", "Flush", "AwaitGpu"}),
            (Calls{"Drain", "AwaitGpu", "Flush", "AwaitGpu", "AwaitGpu"}));
}

TEST_F(TransformBackendTest, OutputInTheWayIsTakenAndTheFrameTriedOnceMore) {
  Start();
  Script([](auto& now) { now.delay = 1; });
  Push(1);
  Script([](auto& now) {
    now.delay = 0;
    now.capacity = 1;
  });
  Push(2);
  EXPECT_EQ(units_, "K1 .2 ");
  Script([](auto& now) { now.capacity = 0; });
  Made();
  Push(3);
  EXPECT_EQ(Made({"ProcessInput"}), (Calls{"ProcessInput 666666", "ProcessInput 666666"}));
  EXPECT_EQ(Logged("ProcessInput failed 0xc00d36b5"), 1U);
  Script([](auto& now) { now.capacity = SIZE_MAX; });
  Push(4);  // in the lost one's place
  EXPECT_EQ(Made({"ProcessInput"}), Calls{"ProcessInput 666666"});
  EXPECT_EQ(units_, "K1 .2 .4 ");
}

// A lost frame that was to be a key frame leaves that to the next.
TEST_F(TransformBackendTest, LostFramesLeaveTheirKeyFrameAndTheirTime) {
  Start();
  Script([](auto& now) { now.lock = transform_error::kFail; });
  Push(1);
  Push(2);
  EXPECT_EQ(Logged("MF buffer Lock failed hr=E_FAIL (0x80004005) — frame dropped (encoder-side, "
                   "not network; counter now=1)"),
            1U);
  EXPECT_EQ(Logged("MF buffer Lock failed"), 1U);
  Script([](auto& now) {
    now.lock = 0;
    now.inputs = {transform_error::kFail};
  });
  Push(3);
  Push(4);
  EXPECT_EQ(units_, "K4 ");
  EXPECT_EQ(Made({"SetTimes"}), (Calls{"SetTimes 0+333333", "SetTimes 0+333333"}));
}

TEST_F(TransformBackendTest, StreamChangesAreFollowedButNotForEver) {
  struct Case {
    size_t changes;
    int32_t set;
    std::string units;
    std::string line;
  };
  const Case cases[] = {
      {1, 0, "K1 ", ""},
      {8, 0, "K1 ", ""},
      {9, 0, "", "ProcessOutput STREAM_CHANGE looped 9× — aborting drain"},
      {1, transform_error::kFail, "",
       "ProcessOutput STREAM_CHANGE renegotiation failed get=0x00000000 set=0x80004005 — aborting "
       "drain"},
  };
  for (const Case& c : cases) {
    units_.clear();
    Start();
    Script([&](auto& now) {
      now.outputs.assign(c.changes, {Answer::StreamChange, transform_error::kStreamChange});
      now.change.set = c.set;
      now.header = {0, 0, 0, 1, 0x67, 1, 2, 3, 4};  // 9 bytes of sets behind the change
    });
    Push(1);
    EXPECT_EQ(units_, c.units) << c.changes;
    if (c.line.empty()) {
      EXPECT_EQ(unitBytes_, 9U + 6U);
    } else {
      EXPECT_EQ(Logged(c.line), 1U) << c.line;
    }
    Script([](auto& now) { now = {}; });
  }
}

TEST_F(TransformBackendTest, FailedOutputIsLostAndTheEncoderStays) {
  Start();
  Script([](auto& now) { now.outputs = {{Answer::Failed, transform_error::kFail}}; });
  Push(1);
  EXPECT_EQ(Logged("ProcessOutput failed 0x80004005"), 1U);
  Script([](auto& now) { now.outputs = {{Answer::Unavailable, 0}}; });
  Push(2);
  EXPECT_EQ(units_, "");
  Push(3);  // what waited inside comes as well, each with its own time
  EXPECT_EQ(units_, "K1 .2 .3 ");
}

TEST_F(TransformBackendTest, ResidentFramesGoInByTheirOwnSamplesUntilOneIsRefused) {
  Script([](auto& now) { now.residentActive = true; });
  Start();
  EXPECT_EQ(Logged("[BigOne] GPU-resident status: ACTIVE"), 1U);
  Push(1);
  EXPECT_EQ(Made(), (Calls{"ResidentSample", "SetTimes 0+333333", "MarkKeyFrame", "ForceKeyFrame 1",
                           "ProcessInput 0"}));
  Script([](auto& now) { now.residentEmpty = true; });
  encoder_->TriggerEmergencyCompression(1);
  Push(2);  // nothing of the order is used up
  Script([](auto& now) { now.residentEmpty = false; });
  Push(3);
  EXPECT_EQ(Made(), (Calls{"ResidentSample", "SetTimes 333333+333333", "EncodeQp 51",
                           "MarkKeyFrame", "ForceKeyFrame 1", "ProcessInput 333333"}));
  Script([](auto& now) { now.inputs = {transform_error::kFail}; });
  Push(4);
  EXPECT_EQ(Made({"RefuseResident"}), Calls{"RefuseResident -2147467259"});
  Push(5);
  EXPECT_EQ(Made({"Filled", "ForceKeyFrame", "ResidentSample"}),
            (Calls{"Filled 4608", "ForceKeyFrame 1"}));
  EXPECT_EQ(units_, "K1 K3 K5 ");
}

// At once, or when it is taken out of the queue: either ends the way of the device's samples.
TEST_F(TransformBackendTest, AnAsynchronousOneThatRefusesTheDevicesSamplesGetsOthers) {
  Transform([](auto& t) { t.asynchronous = true; });
  for (const bool waits : {false, true}) {
    Script([](auto& now) {
      now.drain = transform_error::kFail;
      now.residentActive = true;
      now.inputs = {transform_error::kFail};
    });
    Start();
    if (!waits) script_->Send(kEventNeedInput);
    Push(1);
    if (waits) script_->Send(kEventNeedInput);
    Push(2);
    EXPECT_EQ(Made({"RefuseResident", "ResidentSample", "Filled", "ForceKeyFrame"}),
              (Calls{"ResidentSample", "ForceKeyFrame 1", "RefuseResident -2147467259",
                     "Filled 4608", "ForceKeyFrame 1"}))
        << waits;
  }
}

TEST_F(TransformBackendTest, TheDeviceConvertsWhereItCan) {
  Script([](auto& now) { now.gpuConverts = true; });
  Start();
  Push(1);
  EXPECT_EQ(Made({"ConvertOnGpu", "Filled"}), (Calls{"ConvertOnGpu", "Filled 4608"}));
}

// By the codec that it was opened with, until it is gone: an H.264 slice would be a key frame in
// HEVC.
TEST_F(TransformBackendTest, WhatAnOldTransformStillGivesIsReadByItsOwnCodec) {
  Transform([](auto& t) { t.asynchronous = t.sendsEvents = true; });
  Script([](auto& now) { now.delay = 1; });
  ASSERT_TRUE(Configure());
  Push(1);
  Push(2);
  ASSERT_TRUE(Eventually([&] { return encoder_->HasEmittedKeyframe(); }));
  encoder_->SetCodec(kCodecHevc);
  EXPECT_TRUE(encoder_->Ready());
  encoder_->Shutdown();
  EXPECT_EQ(units_, "K1 .2 ");
}

}  // namespace
}  // namespace Veldrift
