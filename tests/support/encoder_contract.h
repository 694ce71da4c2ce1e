// What every video encoder promises (encoder/hardware_encoder.h), asked of the real ones and of the
// doubles alike. A test binary includes this once and names its encoders:
//
//   INSTANTIATE_TEST_SUITE_P(Real, EncoderContract, testing::Values(...), EncoderContract::Name);
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "encoder/annex_b.h"
#include "encoder/hardware_encoder.h"
#include "platform/mutex.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"

namespace Veldrift {

struct EncoderUnderTest {
  std::string name;
  std::function<std::unique_ptr<IHardwareEncoder>()> make;  // not configured
  int32_t codec = kCodecHevc;
  bool realUnits = true;        // its units are a codec's, not a double's few bytes
  bool placesKeyFrames = true;  // by its GOP size
  bool ownThread = false;       // output comes from a thread of the encoder's
  bool dropsLate = false;       // frames that come faster than it takes them
};

inline void PrintTo(const EncoderUnderTest& encoder, std::ostream* out) { *out << encoder.name; }

class EncoderContract : public testing::TestWithParam<EncoderUnderTest> {
 public:
  static std::string Name(const testing::TestParamInfo<EncoderUnderTest>& info) {
    return info.param.name;
  }

 protected:
  static constexpr int32_t kSide = 64;

  struct Unit {
    std::vector<uint8_t> data;
    bool keyFrame;
    uint64_t timestamp;
  };
  // What came out, from any thread.
  class Output {
   public:
    void AttachTo(IHardwareEncoder& encoder) {
      encoder.SetOutputCallback(
          [this](const uint8_t* data, uint64_t size, bool keyFrame, uint64_t timestamp) {
            MutexLock lock(mutex_);
            units_.push_back({{data, data + size}, keyFrame, timestamp});
          });
    }
    // Waits for the first `count` units, which may come late.
    std::vector<Unit> Await(size_t count) {
      EXPECT_TRUE(Eventually([&] { return Count() >= count; })) << Count() << " of " << count;
      MutexLock lock(mutex_);
      units_.resize(std::max(units_.size(), count));  // so that a failed test may go on
      return units_;
    }
    size_t Count() {
      MutexLock lock(mutex_);
      return units_.size();
    }

   private:
    Mutex mutex_;
    std::vector<Unit> units_ VD_GUARDED_BY(mutex_);
  };

  EncoderContract() : encoder_(GetParam().make()) { output_.AttachTo(*encoder_); }
  ~EncoderContract() override { encoder_.reset(); }

  void Configure(int32_t gopSize) {
    encoder_->SetCodec(GetParam().codec);
    encoder_->SetGopSize(gopSize);
    ASSERT_TRUE(encoder_->Configure(kSide, kSide, 2'000'000, 30));
  }
  static void PushTo(IHardwareEncoder& encoder, int64_t timestamp) {
    std::vector<uint8_t> picture(size_t{kSide} * kSide * 4);
    for (size_t i = 0; i < picture.size(); ++i) picture[i] = uint8_t(i / 3 + size_t(timestamp));
    encoder.EncodeFrame(picture.data(), kSide, kSide, kSide * 4, timestamp);
  }
  // One that drops what comes too fast gets the next frame when this one's unit is there.
  void Push(int64_t timestamp) {
    const size_t before = output_.Count();
    PushTo(*encoder_, timestamp);
    if (!GetParam().dropsLate || !encoder_->Ready()) return;
    EXPECT_TRUE(Eventually([&] { return output_.Count() > before; })) << timestamp;
  }

  // A callback that stands at the gate, on a thread of the test's or the encoder's.
  void HoldOutputAtGate() {
    gate_.Shut();
    encoder_->SetOutputCallback([this](const uint8_t*, uint64_t, bool, uint64_t) {
      gate_.Pass();
      outputDone_ = true;
    });
    pusher_ = std::thread([encoder = encoder_.get()] { PushTo(*encoder, 1); });
    gate_.AwaitSomebody();
  }
  // Runs `end` beside the callback at the gate: it may not come back before that is done.
  template <typename End>
  void ExpectWaitsForOutput(End end) {
    std::atomic<bool> returned{false};
    std::atomic<bool> started{false};
    bool outputWasDone = false;
    std::thread ender([&] {
      started = true;
      end();
      outputWasDone = outputDone_;
      returned = true;
    });
    // One that doesn't wait gets the time to show it; one that does loses nothing.
    EXPECT_TRUE(Eventually([&] { return started.load(); }));
    for (int i = 0; i < 200 && !returned; ++i) std::this_thread::yield();
    EXPECT_FALSE(returned);
    gate_.Open();
    ender.join();
    pusher_.join();
    EXPECT_TRUE(outputWasDone);
  }

  Output output_;
  Gate gate_;
  std::atomic<bool> outputDone_{false};
  std::thread pusher_;
  std::unique_ptr<IHardwareEncoder> encoder_;
};

TEST_P(EncoderContract, FramesComeOutInOrderWithTheTimesThatTheyCameWith) {
  Configure(100);
  const int64_t times[] = {5'000'000'123, 5'000'033'000, 5'000'100'001, 7, 9'000'000'000'000};
  for (const int64_t time : times) Push(time);
  const std::vector<Unit> units = output_.Await(std::size(times));
  ASSERT_EQ(units.size(), std::size(times));
  for (size_t i = 0; i < units.size(); ++i) {
    EXPECT_EQ(units[i].timestamp, uint64_t(times[i])) << i;
    EXPECT_EQ(units[i].keyFrame, i == 0) << i;
    if (!GetParam().realUnits) continue;
    EXPECT_TRUE(StartsWithStartCode(units[i].data)) << i;
    EXPECT_EQ(ContainsKeyFrame(units[i].data, GetParam().codec), units[i].keyFrame) << i;
    EXPECT_EQ(!FindParameterSets(units[i].data, GetParam().codec).empty(), units[i].keyFrame) << i;
  }
}

TEST_P(EncoderContract, KeyFramesStandWhereTheGopSizePutsThem) {
  if (!GetParam().placesKeyFrames) GTEST_SKIP() << "this double only knows all-intra or not";
  struct Case {
    int32_t gopSize;
    std::string keys;
  };
  for (const Case& c : {Case{1, "KKKKKKKKKK"}, Case{3, "K...K...K."}, Case{60, "K........."}}) {
    Configure(c.gopSize);
    const size_t before = output_.Count();
    for (int64_t frame = 0; frame < 10; ++frame) Push(frame);
    std::string keys;
    for (const Unit& unit : output_.Await(before + 10)) keys += unit.keyFrame ? 'K' : '.';
    EXPECT_EQ(keys.substr(before), c.keys) << c.gopSize;
  }
}

TEST_P(EncoderContract, ARequestedKeyFrameIsTheNextFrame) {
  Configure(100);
  for (int64_t frame = 0; frame < 8; ++frame) {
    if (frame == 3) encoder_->RequestIdr();
    if (frame == 6) encoder_->RequestKeyframe();
    Push(frame);
  }
  std::string keys;
  for (const Unit& unit : output_.Await(8)) keys += unit.keyFrame ? 'K' : '.';
  EXPECT_EQ(keys, "K..K..K.");
}

TEST_P(EncoderContract, ASwapMayHappenFromTheFirstKeyFrameOfAConfigurationOn) {
  Configure(100);
  for (int round = 0; round < 2; ++round) {
    EXPECT_FALSE(encoder_->HasEmittedKeyframe());
    Push(round);
    output_.Await(size_t(round) + 1);
    EXPECT_TRUE(Eventually([&] { return encoder_->HasEmittedKeyframe(); }));
    EXPECT_TRUE(output_.Await(size_t(round) + 1).back().keyFrame);
    ASSERT_TRUE(encoder_->Configure(kSide, kSide, 2'000'000, 30));
  }
}

TEST_P(EncoderContract, SettersAnswerAtOnce) {
  Configure(1);
  encoder_->SetBitrate(3'000'000);
  encoder_->SetBitrate(0);
  EXPECT_EQ(encoder_->GetBitrate(), 3'000'000U);
  encoder_->SetGopSize(-5);
  EXPECT_EQ(encoder_->GetGopSize(), 1);
  encoder_->SetGopSize(7);
  EXPECT_EQ(encoder_->GetGopSize(), 7);
  encoder_->SetRateControl(kRateControlVbr, 0.5F);
  EXPECT_EQ(encoder_->GetRateControl(), kRateControlVbr);
  encoder_->SetFrameByteCap(200'000);
  EXPECT_EQ(encoder_->GetFrameByteCap(), 200'000U);
  encoder_->SetCodec(1 - GetParam().codec);
  EXPECT_EQ(encoder_->GetCodec(), 1 - GetParam().codec);
  EXPECT_TRUE(encoder_->Ready());
  EXPECT_EQ(encoder_->GetWidth(), kSide);
  EXPECT_EQ(encoder_->GetHeight(), kSide);
  EXPECT_EQ(encoder_->GetFps(), 30);
  EXPECT_EQ(encoder_->GetBitrate(), 3'000'000U);
}

TEST_P(EncoderContract, LiveChangesKeepTheStreamGoing) {
  Configure(100);
  encoder_->SetRateControl(kRateControlVbr, 0.75F);
  Push(1);
  encoder_->SetBitrate(1'000'000);
  Push(2);
  encoder_->SetPeakBitrate(4'000'000);
  Push(3);
  encoder_->SetHrdBufferBits(1'000'000, 2'000'000);
  Push(4);
  encoder_->SetQualityMode(0.3F);
  Push(5);
  encoder_->TriggerEmergencyCompression(1);
  Push(6);
  Push(7);
  const std::vector<Unit> units = output_.Await(7);
  for (size_t i = 0; i < 7; ++i) EXPECT_EQ(units[i].timestamp, i + 1);
}

TEST_P(EncoderContract, ACloneIsAnEncoderOfItsOwn) {
  Configure(100);
  Push(1);
  output_.Await(1);
  EncoderSettings settings;
  settings.width = 96;
  settings.height = 80;
  settings.fps = 25;
  settings.bitrate = 1'000'000;
  settings.codec = GetParam().codec;
  settings.gopSize = 0;
  const std::unique_ptr<IHardwareEncoder> clone = encoder_->Clone(settings);
  ASSERT_TRUE(clone);
  EXPECT_TRUE(clone->Ready());
  EXPECT_EQ(clone->GetWidth(), 96);
  EXPECT_EQ(clone->GetHeight(), 80);
  EXPECT_EQ(clone->GetFps(), 25);
  EXPECT_EQ(clone->GetBitrate(), 1'000'000U);
  EXPECT_EQ(clone->GetGopSize(), 1);
  EXPECT_EQ(clone->GetCodec(), GetParam().codec);
  EXPECT_FALSE(clone->HasEmittedKeyframe());
  Output cloned;
  cloned.AttachTo(*clone);  // it has no callback of its source's
  PushTo(*clone, 2);
  EXPECT_TRUE(cloned.Await(1)[0].keyFrame);
  clone->Shutdown();
  EXPECT_FALSE(clone->Ready());
  Push(3);
  EXPECT_EQ(output_.Await(2).size(), 2U);
  EXPECT_EQ(encoder_->GetWidth(), kSide);
}

TEST_P(EncoderContract, WithoutAConfigurationNothingComesOutAndItCanComeBack) {
  Push(1);
  Configure(100);
  Push(2);
  EXPECT_EQ(output_.Await(1)[0].timestamp, 2U);
  encoder_->Shutdown();
  EXPECT_FALSE(encoder_->Ready());
  EXPECT_EQ(encoder_->GetDescription(), "");
  const size_t before = output_.Count();
  Push(3);
  EXPECT_EQ(output_.Count(), before);
  Configure(100);
  Push(4);
  const std::vector<Unit> units = output_.Await(before + 1);
  EXPECT_EQ(units[before].timestamp, 4U);
  EXPECT_TRUE(units[before].keyFrame);
}

// Somebody may hold a lock across these that the running callback waits for: one that waited would
// hang here.
TEST_P(EncoderContract, ConfigureAndSettersDontWaitForARunningCallback) {
  Configure(100);
  HoldOutputAtGate();
  encoder_->SetBitrate(2'500'000);
  encoder_->SetPeakBitrate(3'000'000);
  encoder_->SetHrdBufferBits(1'000'000, 2'000'000);
  encoder_->SetQualityMode(0.4F);
  encoder_->SetGopSize(7);
  encoder_->SetRateControl(kRateControlQuality, 0.5F);
  encoder_->SetCodec(1 - GetParam().codec);
  encoder_->SetFrameByteCap(300'000);
  encoder_->TriggerEmergencyCompression(1);
  encoder_->RequestIdr();
  EXPECT_TRUE(encoder_->Configure(80, 80, 1'000'000, 30));
  EXPECT_NE(encoder_->Clone(EncoderSettings{80, 80, 30, 1'000'000}), nullptr);
  EXPECT_EQ(encoder_->GetWidth(), 80);
  encoder_->SetOutputCallback({});
  EXPECT_FALSE(outputDone_);
  gate_.Open();
  pusher_.join();
}

TEST_P(EncoderContract, ShutdownWaitsForARunningCallback) {
  Configure(100);
  HoldOutputAtGate();
  ExpectWaitsForOutput([this] { encoder_->Shutdown(); });
}

TEST_P(EncoderContract, TheDestructorWaitsForARunningCallback) {
  if (!GetParam().ownThread) GTEST_SKIP() << "EncodeFrame itself would run in a dead encoder";
  Configure(100);
  HoldOutputAtGate();
  ExpectWaitsForOutput([this] { encoder_.reset(); });
}

TEST_P(EncoderContract, TheCallbackMayAskBack) {
  Configure(100);
  std::atomic<int> calls{0};
  encoder_->SetOutputCallback([&](const uint8_t*, uint64_t, bool keyFrame, uint64_t) {
    EXPECT_EQ(encoder_->GetGopSize(), 100);
    EXPECT_TRUE(encoder_->Ready());
    if (calls == 0) encoder_->TriggerEmergencyCompression(2);
    if (calls == 2) encoder_->RequestIdr();
    EXPECT_EQ(keyFrame, calls == 0 || calls == 1 || calls == 3) << calls;
    ++calls;
  });
  for (int64_t frame = 0; frame < 4; ++frame) {
    PushTo(*encoder_, frame);
    ASSERT_TRUE(Eventually([&] { return calls > frame; }));
  }
}

TEST_P(EncoderContract, FramesAndSettersRaceWithoutHarm) {
  Configure(10);
  std::atomic<bool> stop{false};
  std::thread setter([&] {
    for (int round = 0; !stop; ++round) {
      encoder_->SetCodec(round % 2);
      encoder_->SetBitrate(1'000'000 + uint32_t(round % 5) * 100'000);
      encoder_->SetQualityMode(float(round % 10) / 10.0F);
      encoder_->TriggerEmergencyCompression(1);
      encoder_->RequestIdr();
      EXPECT_EQ(encoder_->GetDescription().empty(), !encoder_->Ready());
    }
  });
  for (int64_t frame = 1; frame <= 40; ++frame) PushTo(*encoder_, frame);
  stop = true;
  setter.join();
  encoder_->Shutdown();
  const std::vector<Unit> units = output_.Await(GetParam().dropsLate ? 0 : 40);
  uint64_t last = 0;
  for (const Unit& unit : units) {
    EXPECT_GT(unit.timestamp, last);
    last = unit.timestamp;
  }
}

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(EncoderContract);

}  // namespace Veldrift
