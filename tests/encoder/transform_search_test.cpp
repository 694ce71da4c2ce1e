// Which transform is taken, and how it is settled with.
#include "encoder/transform_search.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "encoder/hardware_encoder.h"
#include "tests/support/scratch.h"
#include "tests/support/scripted_transform.h"

namespace Veldrift {
namespace {

using Calls = std::vector<std::string>;
using Traits = ScriptedTransformTraits;
using Offer = EncoderTransform::InputOffer;

Traits Named(const std::string& name, std::vector<TransformClass> listedIn,
             const std::string& vendor = "") {
  Traits traits;
  traits.name = name;
  traits.vendor = vendor;
  traits.listedIn = std::move(listedIn);
  traits.takeDevice = vendor.empty() ? transform_error::kFail : 0;
  return traits;
}

class TransformSearchTest : public testing::Test {
 protected:
  void Have(std::vector<Traits> transforms) {
    script_->Change([&](auto& now) { now.transforms = std::move(transforms); });
  }
  TransformFound Find(const std::string& engineId = "auto", bool allowAsynchronous = true) {
    return FindTransform(*platform_,
                         {{kCodecH264, 64, 48, 25, 3'000'000}, engineId, allowAsynchronous});
  }
  // How often the line has been written since the last question.
  size_t Logged(const std::string& line) {
    const size_t count = CountIn(ReadPluginLog().substr(logStart_), line);
    return count - std::exchange(seen_[line], count);
  }

  const std::shared_ptr<TransformScript> script_ = std::make_shared<TransformScript>();
  const std::unique_ptr<TransformPlatform> platform_ = MakeScriptedPlatform(script_);
  const size_t logStart_ = ReadPluginLog().size();  // the log is the process's
  std::map<std::string, size_t> seen_;
};

constexpr TransformClass kSync = TransformClass::HardwareSync;
constexpr TransformClass kAsync = TransformClass::HardwareAsync;
constexpr TransformClass kSoftware = TransformClass::Software;

// The classes' order decides before the platform's order in one, and the engine's filter before
// both; an engine without an encoder of its own gives way.
TEST_F(TransformSearchTest, ClassesThenTheirOrderAndTheEngineBeforeBoth) {
  Traits async = Named("async", {kAsync}, "VEN_10DE");
  async.asynchronous = true;
  const std::vector<Traits> all = {
      Named("software", {kSoftware}), async, Named("intel", {kSync, kAsync}, "VEN_8086&DEV_1"),
      Named("amd", {kSync}, "ven_1002"), Named("unknown", {kSync}, "VEN_5143")};
  struct Case {
    std::string engine;
    std::string found;
    size_t relaxed;
  };
  const Case cases[] = {
      {"auto", "intel", 0},        {"nvidia", "async", 0}, {"amd", "amd", 0},
      {"software", "software", 0}, {"sw", "software", 0},  {"intel", "intel", 0},
      {"quantum", "intel", 0},  // an id that nobody knows filters nothing
  };
  Have(all);
  for (const Case& c : cases) {
    EXPECT_EQ(Find(c.engine).name, c.found) << c.engine;
    EXPECT_EQ(Logged("engine '" + c.engine + "' produced no usable MFT — relaxing"), c.relaxed);
  }
  Have({all[0]});
  EXPECT_EQ(Find("nvidia").name, "software");
  EXPECT_EQ(Logged("engine 'nvidia' produced no usable MFT — relaxing to best-ranked"), 1U);
  EXPECT_EQ(Logged("trying SW MFT: \"software\" (engine-filtered)"), 2U);
  EXPECT_EQ(Logged("trying SW MFT: \"software\""), 3U);
  Have({});
  EXPECT_EQ(Find("nvidia").transform, nullptr);
}

TEST_F(TransformSearchTest, EachRefusalIsToldAndTheNextIsTried) {
  struct Case {
    std::function<void(Traits&)> refuse;
    std::string line;
    bool asynchronous = false;
  };
  const Case cases[] = {
      {[](Traits& t) { t.activate = transform_error::kFail; },
       "  [SW] activate \"first\" failed E_FAIL (0x80004005)"},
      {[](Traits& t) { t.outputType = static_cast<int32_t>(0xC00D36B4); },
       "  [SW] SetOutputType rejected MF_E_INVALIDMEDIATYPE (0xc00d36b4) — skipping"},
      {[](Traits& t) { t.inputType = transform_error::kFail; },
       "  [SW] SetInputType rejected E_FAIL (0x80004005) — skipping"},
      {[](Traits& t) { t.readAttributes = transform_error::kFail; },
       "  [SW] async-MFT GetAttributes failed E_FAIL (0x80004005) — skipping", true},
      {[](Traits& t) { t.unlock = static_cast<int32_t>(0x80070005); },
       "  [SW] ASYNC_UNLOCK failed E_ACCESSDENIED (0x80070005) — skipping", true},
  };
  for (const Case& c : cases) {
    Traits first = Named("first", {kSoftware});
    first.asynchronous = c.asynchronous;
    c.refuse(first);
    Have({first, Named("second", {kSoftware})});
    EXPECT_EQ(Find().name, "second") << c.line;
    EXPECT_EQ(Logged(c.line), 1U) << c.line;
  }
}

TEST_F(TransformSearchTest, AnAsynchronousTransformNeedsLeaveAndAnUnlockBeforeAnythingElse) {
  Traits async = Named("async", {kAsync}, "VEN_10DE");
  async.asynchronous = true;
  Have({async, Named("software", {kSoftware})});
  TransformFound found = Find();
  EXPECT_EQ(found.name, "async");
  EXPECT_TRUE(found.asynchronous && found.onGpu);
  EXPECT_EQ(Logged("  [HW-async] async MFT — unlocked, will drive via events"), 1U);
  EXPECT_EQ(Logged("  -> using HW-async \"async\" (hw-gpu=1 async=1)"), 1U);
  EXPECT_EQ(script_->TakeCalls(),
            (Calls{"Activate async", "Unlock", "OfferDevice", "SetOutputType 1 64x48@25 3000000",
                   "SetInputType 64x48 0"}));
  found = Find("auto", false);
  EXPECT_EQ(found.name, "software");
  EXPECT_FALSE(found.asynchronous || found.onGpu);
  EXPECT_EQ(Logged("  [HW-async] async MFT — skipping (Setup → \"Use NVIDIA/Intel HW HEVC "
                   "encoders\" is OFF)"),
            1U);
}

TEST_F(TransformSearchTest, OnlyOneThatTookTheDeviceIsOnIt) {
  struct Case {
    bool device;
    int32_t answer;
    bool onGpu;
    size_t told;
    bool asynchronous = false;  // hardware in any case
  };
  for (const Case& c : {Case{true, 0, true, 0}, Case{true, transform_error::kFail, false, 1},
                        Case{false, 0, false, 0}, Case{false, 0, true, 0, true}}) {
    Traits traits = Named("transform", {kSync});
    traits.takeDevice = c.answer;
    traits.asynchronous = c.asynchronous;
    script_->Change([&](auto& now) { now.device = c.device; });
    Have({traits});
    EXPECT_EQ(Find().onGpu, c.onGpu);
    EXPECT_EQ(Logged("  SET_D3D_MANAGER rejected E_FAIL (0x80004005) — MFT runs SW"), c.told);
  }
}

TEST_F(TransformSearchTest, TheFirstNv12ThatIsOfferedIsTakenElseAPlainOne) {
  struct Case {
    std::vector<Offer> offers;
    std::string taken;
  };
  const Case cases[] = {{{Offer::Other, Offer::Other, Offer::Nv12, Offer::Nv12}, "2"},
                        {{Offer::Other, Offer::NoMore, Offer::Nv12}, "plain"},
                        {{}, "plain"}};
  for (const Case& c : cases) {
    Traits traits = Named("transform", {kSoftware});
    traits.offers = c.offers;
    Have({traits});
    EXPECT_NE(Find().transform, nullptr);
    EXPECT_EQ(script_->TakeCalls({"SetInputType"}), Calls{"SetInputType 64x48 " + c.taken});
  }
  // One that offers other types without an end.
  Traits traits = Named("endless", {kSoftware});
  traits.offers = std::vector(2'000, Offer::Other);
  Have({traits});
  EXPECT_NE(Find().transform, nullptr);
}

}  // namespace
}  // namespace Veldrift
