// What the list of encoders shows, and what the platform's functions do when they are told to fail.
#include <gtest/gtest.h>
#include <mfapi.h>
#include <mferror.h>
#include <windows.h>

#include <string>
#include <vector>

#include "tests/transforms/client/scenario.h"
#include "tests/transforms/encoder_client.h"

namespace Veldrift::Transforms {
namespace {

constexpr UINT32 kSyncHardware = 0x45;
constexpr UINT32 kAsyncHardware = 0x46;
constexpr UINT32 kSoftware = 0x41;
constexpr UINT32 kHardware = 0x44;

std::vector<std::string> Names(UINT32 flags, bool hevc = true) {
  std::vector<std::string> names;
  for (const Listed& encoder : ListEncoders(hevc, flags)) names.push_back(encoder.name);
  return names;
}

using Texts = std::vector<std::string>;

TEST(EncoderList, ShowsNamesAndMakersOfTheChosenOnesInTheChosenOrder) {
  const Scenario scenario("software,other-async-hevc,amd,intel-h264,nvidia-async");
  std::vector<std::pair<std::string, std::string>> shown;
  for (const Listed& encoder : ListEncoders(true)) shown.emplace_back(encoder.name, encoder.vendor);
  const std::vector<std::pair<std::string, std::string>> expected = {
      {"Scripted software HEVC encoder", ""},
      {"Scripted stranger asynchronous HEVC encoder", "VEN_F00D"},
      {"Scripted AMD HEVC encoder", "VEN_1002"},
      {"Scripted NVIDIA asynchronous HEVC encoder", "VEN_10DE"}};
  EXPECT_EQ(shown, expected);
  EXPECT_EQ(Names(kAllFlags, false),
            (Texts{"Scripted software H.264 encoder", "Scripted AMD H.264 encoder",
                   "Scripted Intel H.264 encoder", "Scripted NVIDIA asynchronous H.264 encoder"}));
}

TEST(EncoderList, TakesTheFlagsAsAlternativesOrExactly) {
  Scenario scenario("intel,intel-async,software");
  const std::string sync = "Scripted Intel HEVC encoder";
  const std::string async = "Scripted Intel asynchronous HEVC encoder";
  const std::string software = "Scripted software HEVC encoder";
  EXPECT_EQ(Names(kSyncHardware), (Texts{sync, async, software}));
  EXPECT_EQ(Names(kAsyncHardware), (Texts{sync, async}));
  EXPECT_EQ(Names(kSoftware), Texts{software});
  EXPECT_EQ(Names(kHardware), (Texts{sync, async}));
  scenario.ShowExactly();
  EXPECT_EQ(Names(kSyncHardware), Texts{sync});
  EXPECT_EQ(Names(kAsyncHardware), Texts{async});
  EXPECT_EQ(Names(kSoftware), Texts{software});
  EXPECT_EQ(Names(kHardware), (Texts{sync, async}));
}

TEST(EncoderList, IsEmptyWhereNothingIsChosenAndFullWithoutAChoice) {
  Scenario scenario("none");
  EXPECT_EQ(Names(kAllFlags), Texts{});
  scenario.Show("");
  EXPECT_EQ(Names(kAllFlags).size(), 9U);
}

TEST(Platform, FailsFromTheOrderedCallToTheOrderedCall) {
  Scenario scenario;
  scenario.FailPlatform("MFCreateSample@2..3=8007000E");
  std::vector<HRESULT> results;
  for (int call = 0; call < 4; ++call) {
    ComPtr<IMFSample> sample;
    results.push_back(MFCreateSample(sample.Put()));
    EXPECT_EQ(static_cast<bool>(sample), SUCCEEDED(results.back()));
  }
  EXPECT_EQ(results, (std::vector<HRESULT>{S_OK, E_OUTOFMEMORY, E_OUTOFMEMORY, S_OK}));
}

// Each of them, and after the scenario none.
TEST(Platform, FailsInEveryFunctionThatCanBeOrderedTo) {
  struct Row {
    const char* name;
    HRESULT (*call)();
  };
  const Row rows[] = {
      {"MFStartup", [] { return MFStartup(MF_VERSION, MFSTARTUP_LITE); }},
      {"MFCreateAttributes",
       [] {
         ComPtr<IMFAttributes> made;
         return MFCreateAttributes(made.Put(), 1);
       }},
      {"MFCreateMediaType",
       [] {
         ComPtr<IMFMediaType> made;
         return MFCreateMediaType(made.Put());
       }},
      {"MFCreateMemoryBuffer",
       [] {
         ComPtr<IMFMediaBuffer> made;
         return MFCreateMemoryBuffer(16, made.Put());
       }},
      {"MFCreateDXGIDeviceManager",
       [] {
         UINT token = 0;
         ComPtr<IMFDXGIDeviceManager> made;
         return MFCreateDXGIDeviceManager(&token, made.Put());
       }},
      {"MFTEnumEx",
       [] {
         IMFActivate** list = nullptr;
         UINT32 count = 0;
         const HRESULT result =
             MFTEnumEx(MFT_CATEGORY_AUDIO_EFFECT, kAllFlags, nullptr, nullptr, &list, &count);
         CoTaskMemFree(list);
         return result;
       }},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    {
      Scenario scenario;
      scenario.FailPlatform(row.name);
      EXPECT_EQ(row.call(), E_FAIL);
      const std::vector<TracedCall> calls = scenario.Calls(row.name);
      ASSERT_EQ(calls.size(), 1U);
      EXPECT_EQ(calls[0].who, "platform");
      EXPECT_EQ(calls[0].result, 0x80004005U);
    }
    EXPECT_EQ(row.call(), S_OK);
  }
  MFShutdown();  // the one start that worked
}

// Wine has one result for every activation that fails; the trace has ours.
constexpr HRESULT kNotActivated = MF_E_INVALIDREQUEST;

TEST(Activation, CountsItsFailuresOverTheObjectsOfAKind) {
  Scenario scenario("nvidia,intel");
  scenario.TraitsOf("nvidia", "fail=ActivateObject@2..2=80070005");
  const auto activate = [](size_t place) {
    ComPtr<IMFTransform> made;
    return ListEncoders(false)[place].activation->ActivateObject(__uuidof(IMFTransform),
                                                                 made.PutVoid());
  };
  EXPECT_EQ(activate(0), S_OK);
  EXPECT_EQ(activate(1), S_OK);
  EXPECT_EQ(activate(0), kNotActivated);
  EXPECT_EQ(scenario.Calls("ActivateObject").back().result, 0x80070005U);
  EXPECT_EQ(activate(0), S_OK);
  EXPECT_EQ(activate(1), S_OK);
}

TEST(Activation, RefusesAWordThatIsNoTrait) {
  Scenario scenario("software");
  for (const char* word : {"heder=annexb", "header=annex", "lead=many", "fail=", "drains"}) {
    SCOPED_TRACE(word);
    scenario.Traits(word);
    EncoderClient encoder(true);
    EXPECT_EQ(encoder.Activate(), kNotActivated);
  }
}

}  // namespace
}  // namespace Veldrift::Transforms
