// What the Media Foundation encoder asks of a transform and of the platform, call by call: an
// encoder of a maker's may mind what those of the tests let pass.
#include <gmock/gmock.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "encoder/engine_catalogue.h"
#include "tests/encoder_mf/mf_encoder.h"
#include "tests/support/eventually.h"
#include "tests/support/scratch.h"
#include "tests/transforms/client/scenario.h"

namespace Veldrift {
namespace {

using testing::ElementsAre;
using Texts = std::vector<std::string>;

constexpr int32_t kWidth = 208;
constexpr int32_t kHeight = 144;

class MfCallsTest : public testing::Test {
 protected:
  bool Configure(const std::string& kinds, int32_t codec, bool allowAsynchronous = true) {
    scenario_.Show(kinds);
    encoder_ = MakeTestedEncoder("auto", allowAsynchronous);
    encoder_->SetOutputCallback([this](const uint8_t*, uint64_t, bool, uint64_t) { ++outputs_; });
    encoder_->SetCodec(codec);
    encoder_->SetGopSize(100);
    return encoder_->Configure(kWidth, kHeight, 4'000'000, 30);
  }

  void Encode(int frames) {
    const std::vector<uint8_t> picture(size_t{kWidth} * kHeight * 4, 99);
    for (int frame = 0; frame < frames; ++frame) {
      const int before = outputs_;
      encoder_->EncodeFrame(picture.data(), kWidth, kHeight, kWidth * 4, uint64_t(frame) * 1'000);
      EXPECT_TRUE(Eventually([&] { return outputs_ > before; })) << frame;
    }
  }

  Texts Details(const std::string& call) const {
    Texts details;
    for (const Transforms::TracedCall& traced : scenario_.Calls(call)) {
      details.push_back(traced.details);
    }
    return details;
  }

  Transforms::Scenario scenario_;
  std::atomic<int> outputs_ = 0;
  std::unique_ptr<IHardwareEncoder> encoder_;
};

using MfCalls = MfCallsTest;

TEST_F(MfCalls, TheTypesSayAllThatAnEncoderMayWantToKnow) {
  const std::string picture = " 208x144 fps=30/1 aspect=1:1 interlace=2";
  for (const std::string traits : {"", "nv12=later", "nv12=none"}) {
    SCOPED_TRACE(traits);
    scenario_.Traits(traits);
    scenario_.ForgetTrace();
    ASSERT_TRUE(Configure("intel", kCodecH264));
    EXPECT_THAT(Details("SetOutputType"),
                ElementsAre("H264" + picture + " rate=4000000 profile=100"));
    EXPECT_THAT(Details("SetInputType"), ElementsAre("NV12" + picture));
  }
  scenario_.ForgetTrace();
  ASSERT_TRUE(Configure("amd", kCodecHevc));
  EXPECT_THAT(Details("SetOutputType"), ElementsAre("HEVC" + picture + " rate=4000000 profile=1"));
}

TEST_F(MfCalls, FramesGoInWithTheirTimesAndWhatTheyHold) {
  constexpr int kFrames = 8;  // more than an asynchronous encoder has samples
  for (const std::string kind : {"intel", "intel-async"}) {
    SCOPED_TRACE(kind);
    scenario_.ForgetTrace();
    ASSERT_TRUE(Configure(kind, kCodecH264));
    Encode(kFrames);
    const Texts frames = Details("ProcessInput");
    ASSERT_EQ(frames.size(), size_t{kFrames});
    for (int frame = 0; frame < kFrames; ++frame) {
      // The mark of a sample that serves all frames stays; what forces key frames is the property.
      const bool marked = frame == 0 || kind == "intel";
      EXPECT_EQ(frames[size_t(frame)], "time=" + std::to_string(frame * 333'333) +
                                           " duration=333333 clean=" + (marked ? "1" : "0") +
                                           " bytes=44928 in memory");
    }
    EXPECT_THAT(scenario_.PropertiesSet(), testing::Contains("VideoForceKeyFrame 1").Times(1));
  }
}

// A transform that knows no size gets a buffer of the usual one.
TEST_F(MfCalls, OutputsGetTheRoomThatTheTransformNames) {
  for (const auto& [traits, room] :
       {std::pair{"output-size=345678", "345678"}, {"output-size=0", "1048576"}}) {
    scenario_.Traits(traits);
    scenario_.ForgetTrace();
    ASSERT_TRUE(Configure("intel", kCodecH264));
    Encode(1);
    EXPECT_EQ(Details("MFCreateMemoryBuffer").back(), room) << traits;
  }
}

TEST_F(MfCalls, AChangeOfTheStreamThatIsntTakenIsTold) {
  scenario_.Traits("changes=1@2 fail=SetOutputType@2..2=80070057");
  const size_t logged = ReadPluginLog().size();
  ASSERT_TRUE(Configure("intel", kCodecH264));
  Encode(2);
  encoder_->EncodeFrame(std::vector<uint8_t>(size_t{kWidth} * kHeight * 4).data(), kWidth, kHeight,
                        kWidth * 4, 0);
  EXPECT_EQ(CountIn(ReadPluginLog().substr(logged),
                    "STREAM_CHANGE renegotiation failed get=0x00000000 set=0x80070057"),
            1U);
}

TEST_F(MfCalls, MessagesComeInTheirOrder) {
  struct Case {
    std::string kind;
    Texts messages;
  };
  const Case cases[] = {
      {"intel",
       {"COMMAND_FLUSH", "NOTIFY_BEGIN_STREAMING", "NOTIFY_START_OF_STREAM", "COMMAND_FLUSH",
        "NOTIFY_END_OF_STREAM", "NOTIFY_END_STREAMING"}},
      {"intel-async",
       {"NOTIFY_BEGIN_STREAMING", "NOTIFY_START_OF_STREAM", "COMMAND_DRAIN", "COMMAND_FLUSH",
        "NOTIFY_END_OF_STREAM", "NOTIFY_END_STREAMING"}},
  };
  for (const Case& c : cases) {
    scenario_.ForgetTrace();
    ASSERT_TRUE(Configure(c.kind, kCodecHevc));
    Encode(1);
    encoder_->Shutdown();
    EXPECT_EQ(Details("ProcessMessage"), c.messages) << c.kind;
  }
}

// "Synchronous hardware", "asynchronous hardware", "synchronous": the flags are alternatives, and
// the last asks for what is preferred first.
TEST_F(MfCalls, TheListIsAskedForClassByClass) {
  EXPECT_FALSE(Configure("none", kCodecH264));
  EXPECT_THAT(Details("MFTEnumEx"),
              ElementsAre("flags=69 count=0", "flags=70 count=0", "flags=65 count=0"));
  scenario_.ForgetTrace();
  EnumerateEngines();
  EXPECT_THAT(Details("MFTEnumEx"), ElementsAre("flags=68 count=0", "flags=68 count=0"));
}

// Without sockets for encoders, in full for the catalogue's visit; each start has its end.
TEST_F(MfCalls, TheLayerIsStartedOnceForAllEncodersAndGivenBack) {
  auto first = MakeTestedEncoder();
  auto second = MakeTestedEncoder();
  EXPECT_THAT(Details("MFStartup"), ElementsAre("131184 1"));
  first.reset();
  EXPECT_THAT(scenario_.Calls("MFShutdown"), testing::SizeIs(0));
  EnumerateEngines();
  EXPECT_THAT(Details("MFStartup"), ElementsAre("131184 1", "131184 0"));
  EXPECT_THAT(scenario_.Calls("MFShutdown"), testing::SizeIs(1));
  second.reset();
  EXPECT_THAT(scenario_.Calls("MFShutdown"), testing::SizeIs(2));
  scenario_.FailPlatform("MFStartup");
  first = MakeTestedEncoder();
  scenario_.ForgetTrace();
  EXPECT_FALSE(first->Configure(kWidth, kHeight, 4'000'000, 30));
  EXPECT_EQ(scenario_.Calls("MFTEnumEx").size(), 0U);  // nothing is asked of what doesn't run
  first.reset();
  EnumerateEngines();
  EXPECT_THAT(scenario_.Calls("MFShutdown"), testing::SizeIs(0));
  scenario_.FailPlatform("");
  first = MakeTestedEncoder();
  EXPECT_EQ(Details("MFStartup").size(), 2U);  // and the failed visit's
}

// A thread of the host's may know nothing of COM.
TEST_F(MfCalls, ComIsThereOnEveryThreadAsLongAsAnEncoderIs) {
  const auto isThere = [] {
    bool there = false;
    std::thread([&] {
      APTTYPE type;
      APTTYPEQUALIFIER qualifier;
      there = SUCCEEDED(CoGetApartmentType(&type, &qualifier));
    }).join();
    return there;
  };
  scenario_.FailPlatform("MFStartup");  // whose own threads have it
  ASSERT_FALSE(isThere());
  auto encoder = MakeTestedEncoder();
  EXPECT_TRUE(isThere());
  encoder.reset();
  EXPECT_FALSE(isThere());
}

// With all that it was given: transforms are expensive, and hardware has few of them.
TEST_F(MfCalls, ATransformIsLetGoWithItsEncoderAndEachSampleWithItsFrame) {
  for (const std::string kind : {"intel", "intel-async"}) {
    for (const std::string traits : {"provides=yes", "provides=no", "provides=yes changes=2@1"}) {
      SCOPED_TRACE(kind + " " + traits);
      scenario_.Traits(traits);
      ASSERT_TRUE(Configure(kind, kCodecH264));
      Encode(4);
      scenario_.ForgetTrace();
      encoder_.reset();
      // The platform's thread may have the last hold on it.
      EXPECT_TRUE(Eventually([&] { return !scenario_.Calls("Released").empty(); }));
      EXPECT_THAT(Details("Released"), ElementsAre(""));
    }
  }
}

TEST_F(MfCalls, ATransformThatIsPassedOverIsLetGoAtOnce) {
  scenario_.TraitsOf("intel", "fail=SetOutputType");
  ASSERT_TRUE(Configure("intel,software", kCodecH264));
  std::set<std::string> gone;
  for (const Transforms::TracedCall& call : scenario_.Calls("Released")) {
    gone.insert(call.who.substr(0, call.who.find('#')));
  }
  EXPECT_THAT(gone, ElementsAre("intel-h264"));
}

}  // namespace
}  // namespace Veldrift
