// The scripted encoders' manners: what they demand, and each way in which they misbehave on order.
#include <gtest/gtest.h>
#include <mfapi.h>
#include <mferror.h>
#include <windows.h>

#include <string>
#include <vector>

#include "tests/transforms/client/scenario.h"
#include "tests/transforms/encoder_client.h"
#include "tests/transforms/gated_buffer.h"
#include "tests/transforms/stream_judge.h"

namespace Veldrift::Transforms {
namespace {

constexpr HRESULT kDeviceRemoved = static_cast<HRESULT>(0x887A0005U);

TEST(Manners, AnAsynchronousOneHasToBeUnlocked) {
  const Scenario scenario("intel-async");
  EncoderClient encoder(true);
  ASSERT_EQ(encoder.Activate(), S_OK);
  EXPECT_EQ(encoder.NegotiateOutput(), MF_E_TRANSFORM_ASYNC_LOCKED);
  EXPECT_EQ(encoder.Start(), MF_E_TRANSFORM_ASYNC_LOCKED);
  ASSERT_EQ(encoder.Unlock(), S_OK);
  EXPECT_EQ(encoder.NegotiateOutput(), S_OK);
}

TEST(Manners, AnAsynchronousOneTakesAsManyInputsAsItAskedFor) {
  Scenario scenario("intel-async");
  scenario.Traits("credits=1");
  EncoderClient encoder(true);
  ASSERT_EQ(encoder.Activate(), S_OK);
  ASSERT_EQ(encoder.Unlock(), S_OK);
  ASSERT_EQ(encoder.NegotiateOutput(), S_OK);
  ASSERT_EQ(encoder.NegotiateInput(), S_OK);
  EXPECT_EQ(encoder.Put(0), MF_E_NOTACCEPTING);
  Unit unit;
  EXPECT_EQ(encoder.Take(unit), E_UNEXPECTED);
  ASSERT_EQ(encoder.Start(), S_OK);
  EXPECT_EQ(encoder.Event(), METransformNeedInput);
  EXPECT_EQ(encoder.Put(0), S_OK);
  EXPECT_EQ(encoder.Event(), METransformHaveOutput);
  EXPECT_EQ(encoder.Event(), METransformNeedInput);
  EXPECT_EQ(encoder.Take(unit), S_OK);
  EXPECT_EQ(encoder.Take(unit), E_UNEXPECTED);
}

// While it is at work on the one input that it asked for, it takes no other.
TEST(Manners, AnAsynchronousOneTakesNoInputOnCreditOfAnother) {
  Scenario scenario("intel-async");
  scenario.Traits("credits=1");
  EncoderClient encoder(true);
  ASSERT_EQ(encoder.Open(), S_OK);
  Gate gate;
  ComPtr<IMFSample> sample = SampleOf(PictureAt(0), 0);
  ComPtr<IMFMediaBuffer> plain;
  ComPtr<IMFMediaBuffer> gated;
  ASSERT_EQ(sample->GetBufferByIndex(0, plain.Put()), S_OK);
  *gated.Put() = new GatedBuffer(*plain.Get(), gate);
  sample->RemoveAllBuffers();
  sample->AddBuffer(gated.Get());
  gate.Shut();
  EXPECT_EQ(encoder.PutSample(*sample.Get()), S_OK);
  gate.AwaitSomebody();
  EXPECT_EQ(encoder.Put(1), MF_E_NOTACCEPTING);
  gate.Open();
  encoder.WaitFor(METransformHaveOutput);
  encoder.WaitFor(METransformNeedInput);
  EXPECT_EQ(encoder.Put(1), S_OK);
}

TEST(Manners, WantsTypesInOrderAndWhole) {
  const Scenario scenario("software");
  EncoderClient encoder(false);
  ASSERT_EQ(encoder.Activate(), S_OK);
  EXPECT_EQ(encoder.NegotiateInput(), MF_E_TRANSFORM_TYPE_NOT_SET);
  ComPtr<IMFMediaType> bare;
  ASSERT_EQ(encoder.Object().GetOutputAvailableType(0, 0, bare.Put()), S_OK);
  EXPECT_EQ(encoder.Object().SetOutputType(0, bare.Get(), 0), MF_E_INVALIDMEDIATYPE);
  EXPECT_EQ(encoder.NegotiateOutput(), S_OK);
  EXPECT_EQ(encoder.Put(0), MF_E_TRANSFORM_TYPE_NOT_SET);
  EXPECT_EQ(encoder.NegotiateInput(), S_OK);
  EXPECT_EQ(encoder.Put(0), S_OK);
}

TEST(Manners, RefusesABufferThatIsShorterThanThePicture) {
  const Scenario scenario("software");
  EncoderClient encoder(false);
  ASSERT_EQ(encoder.Open(), S_OK);
  std::vector<uint8_t> picture = PictureAt(0);
  picture.pop_back();
  EXPECT_EQ(encoder.PutSample(*SampleOf(picture, 0).Get()), E_INVALIDARG);
}

TEST(Manners, OffersNv12WhereItIsOrderedTo) {
  Scenario scenario("software");
  for (const auto& [word, place] : {std::pair{"first", 0}, {"later", 2}, {"none", -1}}) {
    SCOPED_TRACE(word);
    scenario.Traits(std::string("nv12=") + word);
    EncoderClient encoder(true);
    ASSERT_EQ(encoder.Activate(), S_OK);
    ASSERT_EQ(encoder.NegotiateOutput(), S_OK);
    int found = -1;
    ComPtr<IMFMediaType> type;
    for (DWORD at = 0; SUCCEEDED(encoder.Object().GetInputAvailableType(0, at, type.Put())); ++at) {
      GUID subtype = {};
      type->GetGUID(MF_MT_SUBTYPE, &subtype);
      if (subtype == MFVideoFormat_NV12) found = static_cast<int>(at);
    }
    EXPECT_EQ(found, place);
    EXPECT_EQ(encoder.NegotiateInput(), S_OK);
  }
}

TEST(Manners, TakesADirect3dManagerOrNot) {
  struct Row {
    const char* kind;
    const char* traits;
    HRESULT result;
    UINT32 aware;
  };
  UINT token = 0;
  ComPtr<IMFDXGIDeviceManager> manager;
  ASSERT_EQ(MFCreateDXGIDeviceManager(&token, manager.Put()), S_OK);
  for (const Row& row : {Row{"amd", "", S_OK, 1},
                         {"amd", "d3d=no", E_NOTIMPL, 1},
                         {"amd", "d3d-aware=no", S_OK, 0},
                         {"software", "", E_NOTIMPL, 0}}) {
    SCOPED_TRACE(std::string(row.kind) + " " + row.traits);
    Scenario scenario(row.kind);
    scenario.Traits(row.traits);
    EncoderClient encoder(true);
    ASSERT_EQ(encoder.Activate(), S_OK);
    EXPECT_EQ(
        encoder.Message(MFT_MESSAGE_SET_D3D_MANAGER, reinterpret_cast<ULONG_PTR>(manager.Get())),
        row.result);
    ComPtr<IMFAttributes> attributes;
    ASSERT_EQ(encoder.Object().GetAttributes(attributes.Put()), S_OK);
    UINT32 aware = 9;
    EXPECT_EQ(attributes->GetUINT32(MF_SA_D3D11_AWARE, &aware), S_OK);
    EXPECT_EQ(aware, row.aware);
  }
}

class Misbehaviour : public testing::TestWithParam<const char*> {
 protected:
  Misbehaviour() : scenario(GetParam()), encoder(true) {}
  void Play(const std::string& traits) {
    scenario.Traits(traits);
    ASSERT_EQ(encoder.Open(), S_OK);
  }

  Scenario scenario;
  EncoderClient encoder;
};

INSTANTIATE_TEST_SUITE_P(Ways, Misbehaviour, testing::Values("other", "other-async"),
                         [](const auto& kind) {
                           return std::string(kind.param) == "other" ? "synchronous"
                                                                     : "asynchronous";
                         });

TEST_P(Misbehaviour, ProvidesSamplesOrWantsThem) {
  for (const char* provides : {"yes", "no"}) {
    scenario.Traits(std::string("provides=") + provides);
    EncoderClient other(true);
    ASSERT_EQ(other.Open(), S_OK);
    EXPECT_EQ(other.Encode(0, 3).size(), 3U);
  }
}

TEST_P(Misbehaviour, SaysThatAnOutputDoesNotFitAndKeepsIt) {
  Play("provides=no output-size=64 fail=GetOutputStreamInfo@2..2");
  encoder.WaitFor(METransformNeedInput);
  ASSERT_EQ(encoder.Put(0), S_OK);
  encoder.WaitFor(METransformHaveOutput);
  Unit unit;
  EXPECT_EQ(encoder.Take(unit), MF_E_BUFFERTOOSMALL);
  EXPECT_EQ(encoder.Take(unit), E_FAIL);
  EXPECT_EQ(encoder.Take(unit), MF_E_BUFFERTOOSMALL);
}

TEST_P(Misbehaviour, AnnouncesStreamChangesBeforeAnOutput) {
  for (const auto& [traits, changes] : {std::pair{"changes=1", 1U}, {"changes=9@2", 9U}}) {
    SCOPED_TRACE(traits);
    scenario.Traits(traits);
    scenario.ForgetTrace();
    EncoderClient other(true);
    ASSERT_EQ(other.Open(), S_OK);
    const std::vector<Unit> units = other.Encode(0, 5);
    EXPECT_EQ(Decode({}, units, true).pictures, 5);
    size_t announced = 0;
    size_t before = 0;
    for (const TracedCall& call : scenario.Calls("ProcessOutput")) {
      if (call.result == 0xC00D6D61U) ++announced;
      if (announced == 0 && call.result == 0) ++before;
    }
    EXPECT_EQ(announced, changes);
    EXPECT_EQ(before, changes == 9 ? 2U : 0U);
  }
}

TEST_P(Misbehaviour, BringsItsHeaderWithTheFirstChange) {
  Play("late-header=yes changes=1@1 sets-in-stream=no");
  EXPECT_TRUE(encoder.Header().empty());
  ASSERT_EQ(encoder.Encode(0, 1).size(), 1U);
  EXPECT_TRUE(encoder.Header().empty());
  ASSERT_EQ(encoder.Encode(1, 1).size(), 1U);
  EXPECT_TRUE(HasSets(TypesOf(encoder.Header(), true), true));
}

// A change that isn't answered holds everything back.
TEST_P(Misbehaviour, InsistsOnAnAnswerToAChange) {
  Play("changes=1");
  encoder.WaitFor(METransformNeedInput);
  ASSERT_EQ(encoder.Put(0), S_OK);
  encoder.WaitFor(METransformHaveOutput);
  Unit unit;
  EXPECT_EQ(encoder.Take(unit), MF_E_TRANSFORM_STREAM_CHANGE);
  EXPECT_EQ(encoder.Take(unit), MF_E_TRANSFORM_TYPE_NOT_SET);
  EXPECT_EQ(encoder.Renegotiate(), S_OK);
  encoder.WaitFor(METransformHaveOutput);
  EXPECT_EQ(encoder.Take(unit), S_OK);
}

TEST_P(Misbehaviour, FailsFromTheOrderedCallToTheOrderedCall) {
  Play("fail=ProcessInput@2..2=C00D36B4 fail=COMMAND_FLUSH");
  encoder.WaitFor(METransformNeedInput);
  EXPECT_EQ(encoder.Put(0), S_OK);
  EXPECT_EQ(encoder.Put(1), MF_E_INVALIDMEDIATYPE);
  EXPECT_EQ(encoder.Message(MFT_MESSAGE_COMMAND_FLUSH), E_FAIL);
  EXPECT_EQ(encoder.Message(MFT_MESSAGE_NOTIFY_END_OF_STREAM), S_OK);
}

TEST_P(Misbehaviour, HasNoInterfaceThatItIsOrderedNotToHave) {
  scenario.Traits("fail=ICodecAPI fail=IMFMediaEventGenerator");
  EncoderClient other(true);
  ASSERT_EQ(other.Activate(), S_OK);
  ComPtr<IUnknown> found;
  EXPECT_EQ(other.Object().QueryInterface(IID_ICodecAPI, found.PutVoid()), E_NOINTERFACE);
  EXPECT_EQ(other.Object().QueryInterface(__uuidof(IMFMediaEventGenerator), found.PutVoid()),
            E_NOINTERFACE);
}

TEST_P(Misbehaviour, DiesAtAFrameAndStaysDead) {
  Play("die=2");
  ASSERT_EQ(encoder.Encode(0, 2).size(), 2U);
  EXPECT_EQ(encoder.Put(2), kDeviceRemoved);
  EXPECT_EQ(encoder.Put(3), kDeviceRemoved);
  EXPECT_EQ(encoder.Message(MFT_MESSAGE_COMMAND_FLUSH), kDeviceRemoved);
  EXPECT_EQ(encoder.Set(CODECAPI_AVEncCommonMeanBitRate, 1'000'000), kDeviceRemoved);
  EXPECT_EQ(encoder.WaitFor(MEError), encoder.Async() ? kDeviceRemoved : S_OK);
}

TEST(MisbehavingSynchronously, RefusesAFrameOnceWhileAnOutputIsPending) {
  Scenario scenario("software");
  scenario.Traits("refuse=2");
  EncoderClient encoder(true);
  ASSERT_EQ(encoder.Open(), S_OK);
  Unit unit;
  ASSERT_EQ(encoder.Encode(0, 1).size(), 1U);
  ASSERT_EQ(encoder.Put(1), S_OK);
  EXPECT_EQ(encoder.Take(unit), MF_E_TRANSFORM_NEED_MORE_INPUT);
  EXPECT_EQ(encoder.Put(2), MF_E_NOTACCEPTING);
  EXPECT_EQ(encoder.Take(unit), S_OK);
  EXPECT_EQ(unit.time, kFrameTime);
  EXPECT_EQ(encoder.Put(2), S_OK);
  EXPECT_EQ(encoder.Take(unit), S_OK);
  EXPECT_EQ(encoder.Encode(3, 2).size(), 2U);
}

TEST(MisbehavingSynchronously, StallsFromAFrameOn) {
  Scenario scenario("software");
  scenario.Traits("stall=3");
  EncoderClient encoder(true);
  ASSERT_EQ(encoder.Open(), S_OK);
  EXPECT_EQ(encoder.Encode(0, 10).size(), 3U);
  EXPECT_EQ(scenario.Calls("ProcessInput").size(), 10U);
}

TEST(MisbehavingAsynchronously, StallsAndStillAsksForMore) {
  Scenario scenario("amd-async");
  scenario.Traits("stall=1 credits=1");
  EncoderClient encoder(true);
  ASSERT_EQ(encoder.Open(), S_OK);
  ASSERT_EQ(encoder.Encode(0, 1).size(), 1U);
  for (int frame = 1; frame < 5; ++frame) {
    EXPECT_EQ(encoder.Event(), METransformNeedInput);
    EXPECT_EQ(encoder.Put(frame), S_OK);
  }
  EXPECT_EQ(encoder.Event(), METransformNeedInput);
  EXPECT_TRUE(encoder.Drain().empty());
}

TEST(MisbehavingSynchronously, DelaysOutputsAndBringsTheRestAtTheEnd) {
  Scenario scenario("software");
  scenario.Traits("delay=2");
  EncoderClient encoder(true);
  ASSERT_EQ(encoder.Open(), S_OK);
  const std::vector<Unit> units = encoder.Encode(0, 5);
  ASSERT_EQ(units.size(), 3U);
  EXPECT_EQ(units[2].time, 2 * kFrameTime);
  const std::vector<Unit> rest = encoder.Drain();
  ASSERT_EQ(rest.size(), 2U);
  EXPECT_EQ(rest[1].time, 4 * kFrameTime);
}

TEST(MisbehavingAsynchronously, BringsDelayedOutputsBeforeTheDrainIsComplete) {
  Scenario scenario("amd-async");
  scenario.Traits("delay=2");
  EncoderClient encoder(true);
  ASSERT_EQ(encoder.Open(), S_OK);
  for (int frame = 0; frame < 3; ++frame) {
    encoder.WaitFor(METransformNeedInput);
    ASSERT_EQ(encoder.Put(frame), S_OK);
  }
  EXPECT_EQ(encoder.Drain().size(), 3U);
  EXPECT_EQ(encoder.Put(3), MF_E_NOTACCEPTING);
}

// That something never comes can't be waited for; that it wasn't said stands in the trace, in which
// the flush comes behind all that the drain did.
TEST(MisbehavingAsynchronously, NeverAnswersADrain) {
  Scenario scenario("amd-async");
  for (const bool drains : {true, false}) {
    scenario.Traits(drains ? "" : "drains=no");
    scenario.ForgetTrace();
    EncoderClient encoder(true);
    ASSERT_EQ(encoder.Open(), S_OK);
    ASSERT_EQ(encoder.Encode(0, 2).size(), 2U);
    ASSERT_EQ(encoder.Message(MFT_MESSAGE_COMMAND_DRAIN), S_OK);
    if (drains) encoder.WaitFor(METransformDrainComplete);
    ASSERT_EQ(encoder.Message(MFT_MESSAGE_COMMAND_FLUSH), S_OK);
    size_t complete = 0;
    for (const TracedCall& event : scenario.Calls("Event")) {
      complete += event.details == "DrainComplete";
    }
    EXPECT_EQ(complete, drains ? 1U : 0U);
  }
}

TEST(MisbehavingAsynchronously, AnswersNothingAfterItsShutdown) {
  const Scenario scenario("amd-async");
  EncoderClient encoder(true);
  ASSERT_EQ(encoder.Open(), S_OK);
  ComPtr<IMFShutdown> shutdown;
  ASSERT_EQ(encoder.Object().QueryInterface(__uuidof(IMFShutdown), shutdown.PutVoid()), S_OK);
  EXPECT_EQ(shutdown->Shutdown(), S_OK);
  EXPECT_EQ(encoder.Put(0), MF_E_SHUTDOWN);
  EXPECT_EQ(encoder.Event(), MEUnknown);
}

TEST(Trace, TellsOfEveryCallWithItsResult) {
  const Scenario scenario("intel-h264");
  {
    EncoderClient encoder(false);
    ASSERT_EQ(encoder.Open(), S_OK);
    ASSERT_EQ(encoder.Encode(0, 1).size(), 1U);
  }
  std::vector<std::string> calls;
  for (const TracedCall& call : scenario.Trace()) {
    if (call.who != "platform") calls.push_back(call.call);
  }
  EXPECT_EQ(calls, (std::vector<std::string>{"ActivateObject", "GetAttributes", "SetOutputType",
                                             "SetInputType", "ProcessMessage", "ProcessMessage",
                                             "ProcessInput", "GetOutputStreamInfo", "ProcessOutput",
                                             "GetOutputStreamInfo", "ProcessOutput", "Released"}));
  const TracedCall input = scenario.Calls("ProcessInput").at(0);
  EXPECT_TRUE(input.who.starts_with("intel-h264#"));
  EXPECT_EQ(input.details, "time=0 duration=333333 clean=0 bytes=44928 in memory");
  EXPECT_EQ(scenario.Calls("ProcessOutput").at(1).result, 0xC00D6D72U);
}

}  // namespace
}  // namespace Veldrift::Transforms
