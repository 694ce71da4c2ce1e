// Frames, credits and events of an asynchronous transform, event by event.
#include "encoder/async_driver.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "encoder/hardware_encoder.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scratch.h"
#include "tests/support/scripted_transform.h"

namespace Veldrift {
namespace {

using Calls = std::vector<std::string>;

// Time that passes by itself while somebody waits for it.
struct PassingClock final : ManualClock {
  void WaitUntil(CondVar& condition, MutexLock& lock, int64_t deadlineNanos) override {
    if (passes) return AdvanceTo(deadlineNanos);
    ManualClock::WaitUntil(condition, lock, deadlineNanos);
  }
  std::atomic<bool> passes{false};
};

class AsyncDriverTest : public testing::Test {
 protected:
  AsyncDriverTest() {
    port_->Open();
    port_->SetCallback([this](const uint8_t*, uint64_t, bool, uint64_t timestamp) {
      gate_.Pass();
      out_ += std::to_string(timestamp) + " ";
    });
  }
  void Make(const ScriptedTransformTraits& traits = {}) {
    script_->Change([&](auto& now) { now.transforms = {traits}; });
    int32_t error = 0;
    transform_ = platform_->Find(TransformClass::Software, kCodecH264)[0]->Activate(error);
    driver_ = std::make_unique<AsyncDriver>(*transform_, *platform_, port_, emission_, kCodecH264,
                                            100, clock_);
  }
  void Start() {
    Make();
    ASSERT_TRUE(driver_->Start());
    script_->TakeCalls();
  }
  // A frame that came with the time `number`, at ten times that in the transform's own count.
  int32_t Put(int number) {
    int32_t error = 0;
    const TransformDriver::Sample sample = driver_->MemorySample(error);
    sample->SetTimes(number * 10, 10);
    return driver_->Put(sample, number * 10, uint64_t(number));
  }
  bool Send(uint32_t type) { return script_->Send(type); }
  std::string Out() {
    port_->Drain();
    return out_;
  }
  Calls Inputs() { return script_->TakeCalls({"ProcessInput"}); }
  void Script(const std::function<void(TransformScript::Behaviour&)>& change) {
    script_->Change(change);
  }

  // How often the line has been written in this test.
  size_t Logged(const std::string& line) {
    return CountIn(ReadPluginLog().substr(logStart_), line);
  }

  const size_t logStart_ = ReadPluginLog().size();
  const std::shared_ptr<TransformScript> script_ = std::make_shared<TransformScript>();
  const std::unique_ptr<TransformPlatform> platform_ = MakeScriptedPlatform(script_);
  const std::shared_ptr<OutputPort> port_ = std::make_shared<OutputPort>();
  PassingClock clock_;
  Gate gate_;
  std::string out_;  // written by whoever emits, one at a time
  EmissionThread emission_{port_};
  std::unique_ptr<EncoderTransform> transform_;
  std::unique_ptr<AsyncDriver> driver_;
};

TEST_F(AsyncDriverTest, AFrameGoesInForACreditAndWaitsWithoutOne) {
  Start();
  Put(1);
  EXPECT_EQ(Inputs(), Calls{});
  EXPECT_TRUE(Send(kEventNeedInput));
  EXPECT_EQ(Inputs(), Calls{"ProcessInput 10"});
  EXPECT_TRUE(Send(kEventNeedInput));  // nobody waits: a credit each
  EXPECT_TRUE(Send(kEventNeedInput));
  Put(2);
  Put(3);
  EXPECT_EQ(Inputs(), (Calls{"ProcessInput 20", "ProcessInput 30"}));
  Put(4);
  EXPECT_EQ(Inputs(), Calls{});
}

TEST_F(AsyncDriverTest, OfThoseThatWaitTheNewestTwoStay) {
  Start();
  for (int frame = 1; frame <= 4; ++frame) Put(frame);
  for (int i = 0; i < 4; ++i) Send(kEventNeedInput);
  EXPECT_EQ(Inputs(), (Calls{"ProcessInput 30", "ProcessInput 40"}));
  Put(5);
  Put(6);
  Put(7);
  EXPECT_EQ(Inputs(), (Calls{"ProcessInput 50", "ProcessInput 60"}));
}

// A refused frame costs itself and its credit.
TEST_F(AsyncDriverTest, ARefusedFrameIsLostAndTheNextOneGoesOn) {
  Start();
  Send(kEventNeedInput);
  Script([](auto& now) { now.inputs = {transform_error::kFail, transform_error::kFail}; });
  EXPECT_LT(Put(1), 0);
  EXPECT_EQ(Put(2), 0);  // waits
  Send(kEventNeedInput);
  EXPECT_EQ(Inputs(), (Calls{"ProcessInput 10", "ProcessInput 20"}));
  Put(3);
  Send(kEventNeedInput);
  Send(kEventHaveOutput);
  EXPECT_EQ(Inputs(), Calls{"ProcessInput 30"});
  EXPECT_EQ(Out(), "3 ");
}

// By the sample's own time, however many frames the transform holds back.
TEST_F(AsyncDriverTest, EachUnitHasTheTimeThatItsFrameCameWith) {
  Start();
  Script([](auto& now) {
    now.delay = 2;
    now.timeOff = 3;
  });
  for (int frame = 1; frame <= 4; ++frame) {
    Send(kEventNeedInput);
    Put(frame);
  }
  for (int i = 0; i < 3; ++i) Send(kEventHaveOutput);  // the third time there is none
  EXPECT_EQ(Out(), "1 2 ");
  // A transform that stands still while a hundred frames pass by has kept the time of its own.
  for (int frame = 100; frame < 200; ++frame) Put(frame);
  Send(kEventNeedInput);
  Send(kEventHaveOutput);
  EXPECT_EQ(Out(), "1 2 3 ");
  Send(kEventNeedInput);
  Script([](auto& now) { now.delay = 0; });
  for (int i = 0; i < 3; ++i) Send(kEventHaveOutput);
  EXPECT_EQ(Out(), "1 2 3 4 198 199 ");
  Script([](auto& now) { now.timedOutput = false; });
  Send(kEventNeedInput);
  Put(5);
  Send(kEventHaveOutput);
  EXPECT_EQ(Out(), "1 2 3 4 198 199 5 ");  // a sample without a time belongs to the newest frame
}

TEST_F(AsyncDriverTest, AStreamChangeReadsTheHeaderAnewAndEachEventIsOneTry) {
  Start();
  Send(kEventNeedInput);
  Put(1);
  using Output = EncoderTransform::Output;
  Script([](auto& now) {
    now.outputs = {{Output::Answer::StreamChange, transform_error::kStreamChange},
                   {Output::Answer::Unavailable, 0}};
    now.header = {0, 0, 0, 1, 0x67, 9, 9};
  });
  Send(kEventHaveOutput);
  EXPECT_EQ(script_->TakeCalls({"AcceptStreamChange", "SequenceHeader"}),
            (Calls{"AcceptStreamChange", "SequenceHeader"}));
  EXPECT_EQ(driver_->ParameterSetBytes(), 7U);
  Send(kEventHaveOutput);
  EXPECT_EQ(Out(), "");
  Send(kEventHaveOutput);
  EXPECT_EQ(Out(), "1 ");
}

TEST_F(AsyncDriverTest, EventsThatFailOrMeanNothingDontEndTheStream) {
  Start();
  EXPECT_TRUE(script_->Send(kEventNeedInput, transform_error::kFail));
  Put(1);
  EXPECT_EQ(Inputs(), Calls{});  // it was no credit
  for (const uint32_t type : {kEventError, uint32_t{999}, kEventNeedInput}) EXPECT_TRUE(Send(type));
  EXPECT_EQ(Inputs(), Calls{"ProcessInput 10"});
}

TEST_F(AsyncDriverTest, WhatCantBeDrivenIsToldAndNotHeldOnTo) {
  ScriptedTransformTraits silent;
  silent.openEvents = static_cast<int32_t>(0x80004002);
  Make(silent);
  EXPECT_FALSE(driver_->Start());
  EXPECT_EQ(Logged("async: MFT does not expose IMFMediaEventGenerator (E_NOINTERFACE "
                   "(0x80004002))"),
            1U);
  ScriptedTransformTraits deaf;
  deaf.requestEvent = transform_error::kFail;
  Make(deaf);
  script_->TakeCalls();
  EXPECT_FALSE(driver_->Start());
  EXPECT_EQ(Logged("async: BeginGetEvent failed E_FAIL (0x80004005)"), 1U);
  EXPECT_EQ(script_->TakeCalls(), (Calls{"OpenEvents", "CloseEvents"}));
}

// A transform may ask for a frame before START_OF_STREAM has returned.
TEST_F(AsyncDriverTest, ACreditFromBeforeTheEndOfTheStartCounts) {
  ScriptedTransformTraits eager;
  eager.wantsDuringStart = true;
  Make(eager);
  ASSERT_TRUE(driver_->Start());
  Put(1);
  EXPECT_EQ(Inputs(), Calls{"ProcessInput 10"});
}

TEST_F(AsyncDriverTest, ADrainEndsWithItsEventOrAfterTwoSeconds) {
  Start();
  std::thread event([&] {
    while (script_->TakeCalls({"Drain"}).empty()) std::this_thread::yield();
    Send(kEventDrainComplete);
  });
  EXPECT_TRUE(driver_->Drain());
  event.join();
  // The event of an earlier drain ends no later one.
  clock_.passes = true;
  const int64_t before = clock_.NowNanos();
  EXPECT_FALSE(driver_->Drain());
  EXPECT_EQ(clock_.NowNanos() - before, 2 * kNanosPerSecond);
  EXPECT_EQ(Logged("async: DRAIN wait timed out (2s) — proceeding to GPU-idle"), 1U);
  Script([](auto& now) { now.drain = transform_error::kFail; });
  EXPECT_FALSE(driver_->Drain());
}

// What the event uses may go as soon as Stop has returned.
TEST_F(AsyncDriverTest, StopWaitsForAnEventThatIsBeingHandled) {
  Start();
  Put(1);
  gate_.Shut();
  Script([this](auto& now) { now.onInput = [this] { gate_.Pass(); }; });
  std::thread event([&] { Send(kEventNeedInput); });
  gate_.AwaitSomebody();
  std::atomic<bool> stopped{false};
  std::thread stopper([&] {
    driver_->Stop();
    stopped = true;
  });
  for (int i = 0; i < 200 && !stopped; ++i) std::this_thread::yield();
  EXPECT_FALSE(stopped);
  gate_.Open();
  stopper.join();
  event.join();
}

TEST_F(AsyncDriverTest, BehindStopAnEventFindsNobody) {
  Start();
  Send(kEventNeedInput);
  Put(1);
  const std::shared_ptr<OutputPort> port = port_;
  driver_->Stop();
  EXPECT_EQ(script_->TakeCalls({"CloseEvents"}), Calls{"CloseEvents"});
  EXPECT_TRUE(Send(kEventHaveOutput));   // it had been asked for
  EXPECT_FALSE(Send(kEventHaveOutput));  // and is not asked for again
  EXPECT_EQ(Out(), "");
  driver_.reset();
  transform_.reset();
}

// The callback may wait for who stops the driver: no event, neither Drain nor Stop waits for it.
TEST_F(AsyncDriverTest, NobodyWaitsForTheCallback) {
  Start();
  Send(kEventNeedInput);
  Put(1);
  gate_.Shut();
  EXPECT_TRUE(Send(kEventHaveOutput));
  gate_.AwaitSomebody();
  EXPECT_TRUE(Send(kEventNeedInput));
  Put(2);
  EXPECT_EQ(Inputs(), (Calls{"ProcessInput 10", "ProcessInput 20"}));
  std::thread drained([&] {
    while (script_->TakeCalls({"Drain"}).empty()) std::this_thread::yield();
    Send(kEventDrainComplete);
  });
  EXPECT_TRUE(driver_->Drain());
  drained.join();
  driver_->Stop();
  gate_.Open();
  EXPECT_EQ(Out(), "1 ");
}

}  // namespace
}  // namespace Veldrift
