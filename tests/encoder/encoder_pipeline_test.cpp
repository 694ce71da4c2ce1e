#include "encoder/encoder_pipeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <new>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/file.h"
#include "support/debug_topics.h"
#include "tests/support/child.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scripted_encoder.h"

namespace Veldrift {
namespace {

EncoderSettings Sized(int32_t width, int32_t height) {
  EncoderSettings settings;
  settings.width = width;
  settings.height = height;
  settings.bitrate = 1'000'000;
  return settings;
}

std::filesystem::path CsvPath() { return PathFromText(DebugLogPath("transitions.csv")); }

std::vector<std::string> CsvLines() {
  std::istringstream text(ReadWholeFile(CsvPath()).value_or(""));
  std::vector<std::string> lines;
  for (std::string line; std::getline(text, line);) lines.push_back(line);
  return lines;
}

struct Output {
  int encoder;
  bool keyFrame;
  uint64_t timestamp;
};

class EncoderPipelineTest : public testing::Test {
 protected:
  EncoderPipelineTest() {
    std::filesystem::remove(CsvPath());
    Build();
  }

  void Build() {
    auto encoder = std::make_unique<ScriptedEncoder>(script_, Sized(100, 100));
    first_ = encoder.get();
    pipeline_ = std::make_unique<EncoderPipeline>(std::move(encoder), clock_);
    pipeline_->SetOutputCallback(
        [this](const uint8_t* data, uint64_t size, bool keyFrame, uint64_t timestamp) {
          MutexLock lock(mutex_);
          outputs_.push_back({data[size - 1], keyFrame, timestamp});
        });
  }

  void Push() {
    static const uint8_t kPicture[100 * 100 * 4] = {};
    pipeline_->EncodeFrame(kPicture, 100, 100, 400, ++pushed_);
  }
  // Feeds frames until `condition` holds.
  template <typename Condition>
  void PushUntil(Condition condition) {
    ASSERT_TRUE(Eventually([&] {
      if (condition()) return true;
      Push();
      return false;
    }));
  }
  void PushUntilWidth(int32_t width) {
    PushUntil([&] { return pipeline_->GetEncoderWidth() == width; });
  }
  void AwaitCall(const std::string& call) {
    ASSERT_TRUE(Eventually([&] { return script_->Count(call) != 0; })) << call;
  }
  void AwaitCsvLines(size_t count) {
    ASSERT_TRUE(Eventually([&] { return CsvLines().size() >= count; }));
  }
  std::vector<Output> Outputs() {
    MutexLock lock(mutex_);
    return outputs_;
  }

  ManualClock clock_{5 * kNanosPerSecond};
  std::shared_ptr<EncoderScript> script_ = std::make_shared<EncoderScript>();
  Mutex mutex_;
  std::vector<Output> outputs_ VD_GUARDED_BY(mutex_);
  std::unique_ptr<EncoderPipeline> pipeline_;
  ScriptedEncoder* first_ = nullptr;
  int64_t pushed_ = 0;
};

TEST_F(EncoderPipelineTest, ASwapLosesNoFrameAndStartsWithAKeyFrame) {
  Push();
  pipeline_->RequestTransition(Sized(200, 160));
  PushUntilWidth(200);
  Push();
  const std::vector<Output> outputs = Outputs();
  ASSERT_EQ(static_cast<int64_t>(outputs.size()), pushed_);
  for (size_t i = 0; i + 1 < outputs.size(); ++i) {
    EXPECT_EQ(outputs[i].encoder, 0) << "output of the clone before the swap, frame " << i;
    EXPECT_EQ(outputs[i].timestamp, i + 1);
  }
  EXPECT_EQ(outputs.back().encoder, 1);
  EXPECT_TRUE(outputs.back().keyFrame);
  EXPECT_GE(script_->Count("1.RequestIdr"), 1U);
  AwaitCall("0.Shutdown");
}

TEST_F(EncoderPipelineTest, TheTargetIsAnsweredFromTheRequestOn) {
  script_->Change([](auto& now) { now.withholdOutput = true; });  // no key frame, no swap
  pipeline_->RequestTransition(Sized(200, 160));
  EXPECT_EQ(pipeline_->GetWidth(), 200);
  EXPECT_EQ(pipeline_->GetHeight(), 160);
  AwaitCall("0.Clone 200x160");
  Push();
  EXPECT_EQ(pipeline_->GetEncoderWidth(), 100);
  script_->Change([](auto& now) { now.withholdOutput = false; });
  PushUntilWidth(200);
  EXPECT_EQ(pipeline_->GetEncoderHeight(), 160);
}

TEST_F(EncoderPipelineTest, TheSameTransitionIsNotStartedTwice) {
  script_->Change([](auto& now) { now.withholdOutput = true; });
  EncoderSettings wanted = Sized(200, 160);
  pipeline_->RequestTransition(wanted);
  PushUntil([&] { return script_->Count("1.EncodeFrame 100x100") > 0; });
  wanted.bitrate = 9'000'000;  // rates don't make another transition
  pipeline_->RequestTransition(wanted);
  script_->Change([](auto& now) { now.withholdOutput = false; });
  PushUntilWidth(200);
  pipeline_->Stop();
  EXPECT_EQ(script_->Count("0.Clone 200x160"), 1U);
  EXPECT_EQ(script_->Count("1.Clone 200x160"), 0U);
}

// What has to differ for another transition: a request that differs in one of these replaces the
// clone that is pending, and nothing else does.
TEST_F(EncoderPipelineTest, WhatMakesAnotherTransition) {
  struct Case {
    const char* what;
    std::function<void(EncoderSettings&)> change;
    bool another;
  };
  const Case cases[] = {
      {"width", [](auto& s) { s.width = 202; }, true},
      {"height", [](auto& s) { s.height = 162; }, true},
      {"fps", [](auto& s) { s.fps = 25; }, true},
      {"codec", [](auto& s) { s.codec = kCodecH264; }, true},
      {"GOP size", [](auto& s) { s.gopSize = 9; }, true},
      {"mode", [](auto& s) { s.rateControl = kRateControlVbr; }, true},
      {"rate", [](auto& s) { s.bitrate = 5; }, false},
      {"peak", [](auto& s) { s.peakBitrate = 5; }, false},
      {"quality", [](auto& s) { s.quality = 0.1F; }, false},
      {"cap", [](auto& s) { s.frameByteCap = 5; }, false},
  };
  for (const Case& c : cases) {
    script_ = std::make_shared<EncoderScript>();
    script_->Change([](auto& now) { now.withholdOutput = true; });
    Build();
    EncoderSettings wanted = Sized(200, 160);
    pipeline_->RequestTransition(wanted);
    PushUntil([&] { return script_->Count("1.EncodeFrame 100x100") > 0; });
    c.change(wanted);
    pipeline_->RequestTransition(wanted);
    if (c.another) AwaitCall("1.Shutdown");
    pipeline_->Stop();
    const std::vector<std::string> calls = script_->Calls();
    const auto clones = std::count_if(calls.begin(), calls.end(), [](const std::string& call) {
      return call.starts_with("0.Clone ");
    });
    EXPECT_EQ(clones, c.another ? 2 : 1) << c.what;
  }
}

// The clone is the next primary: what is set meanwhile counts for it as well.
TEST_F(EncoderPipelineTest, SettersReachTheCloneToo) {
  script_->Change([](auto& now) { now.withholdOutput = true; });
  pipeline_->RequestTransition(Sized(200, 160));
  PushUntil([&] { return script_->Count("1.EncodeFrame 100x100") > 0; });
  pipeline_->SetCodec(kCodecH264);
  pipeline_->SetGopSize(9);
  pipeline_->SetRateControl(kRateControlVbr, 0.5F);
  pipeline_->RequestIdr();
  pipeline_->TriggerEmergencyCompression(5);
  for (const char* call : {"SetCodec 1", "SetGopSize 9", "SetRateControl 2", "RequestIdr"}) {
    EXPECT_EQ(script_->Count(std::string("0.") + call), 1U) << call;
    EXPECT_EQ(script_->Count(std::string("1.") + call), 1U) << call;
  }
  EXPECT_EQ(script_->Count("0.TriggerEmergencyCompression 5"), 1U);
  EXPECT_EQ(script_->Count("1.TriggerEmergencyCompression 5"), 0U);
}

// An older wish may not undo a newer one, however far it has got.
TEST_F(EncoderPipelineTest, ReconfiguringInPlaceGivesUpATransitionUnderWay) {
  script_->Change([](auto& now) { now.withholdOutput = true; });
  pipeline_->RequestTransition(Sized(200, 160));
  PushUntil([&] { return script_->Count("1.EncodeFrame 100x100") > 0; });
  pipeline_->ReconfigureInPlace(Sized(300, 240));
  EXPECT_EQ(pipeline_->GetWidth(), 300);
  AwaitCall("1.Shutdown");
  script_->Change([](auto& now) { now.withholdOutput = false; });
  for (int frame = 0; frame < 5; ++frame) Push();
  EXPECT_EQ(pipeline_->GetEncoderWidth(), 300);
}

TEST_F(EncoderPipelineTest, ReconfiguringInPlaceGivesUpACloneUnderConstruction) {
  struct Case {
    const char* what;
    bool cloneFails;  // then the older wish would fall back to reconfiguring
  };
  for (const Case& c : {Case{"clone", false}, Case{"failing clone", true}}) {
    script_ = std::make_shared<EncoderScript>();
    Build();
    Gate gate;
    gate.Shut();
    script_->Change([&](auto& now) {
      now.failClone = c.cloneFails;
      now.insideClone = [&gate] { gate.Pass(); };
    });
    pipeline_->RequestTransition(Sized(200, 160));
    gate.AwaitSomebody();
    std::atomic<bool> started{false};
    std::thread newer([&] {
      started = true;
      pipeline_->ReconfigureInPlace(Sized(300, 240));
    });
    // It waits for the clone to be built, and nobody can see that: it gets the time for it. Should
    // it come later, the older wish was served before it, which is right as well.
    EXPECT_TRUE(Eventually([&] { return started.load(); }));
    for (int i = 0; i < 200; ++i) std::this_thread::yield();
    gate.Open();
    newer.join();
    if (!c.cloneFails) AwaitCall("1.Shutdown");
    for (int frame = 0; frame < 5; ++frame) Push();
    pipeline_->RequestTransition(Sized(400, 320));  // the worker is behind the older wish now
    AwaitCall("0.Clone 400x320");
    std::vector<std::string> calls = script_->Calls();
    calls.resize(size_t(std::find(calls.begin(), calls.end(), "0.Clone 400x320") - calls.begin()));
    const auto last = std::find_if(calls.rbegin(), calls.rend(), [](const std::string& call) {
      return call.starts_with("0.Configure ");
    });
    ASSERT_NE(last, calls.rend()) << c.what;
    EXPECT_EQ(*last, "0.Configure 300x240 1000000 30") << c.what;
    pipeline_->Stop();
  }
}

TEST_F(EncoderPipelineTest, AnExceptionCostsOneJobAndNoWorker) {
  std::atomic<int> throws{1};
  script_->Change([&](auto& now) {
    now.insideClone = [&throws] {
      if (throws-- > 0) throw std::bad_alloc();
    };
  });
  pipeline_->RequestTransition(Sized(200, 160));
  PushUntilWidth(200);  // in place, as behind any clone that fails
  EXPECT_EQ(script_->Count("0.Configure 200x160 1000000 30"), 1U);

  std::atomic<int> throwsAtEnd{1};
  script_->Change([&](auto& now) {
    now.insideShutdown = [&throwsAtEnd] {
      if (throwsAtEnd-- > 0) throw std::bad_alloc();
    };
  });
  pipeline_->RequestTransition(Sized(300, 240));
  PushUntilWidth(300);
  AwaitCall("0.Shutdown");
  pipeline_->RequestTransition(Sized(400, 320));
  PushUntilWidth(400);
  AwaitCall("1.Shutdown");
  throwsAtEnd = 1;
  pipeline_->Stop();  // nor does the primary's end
}

TEST_F(EncoderPipelineTest, ANewRequestRetiresACloneThatNeverSwapped) {
  script_->Change([](auto& now) { now.withholdOutput = true; });
  pipeline_->RequestTransition(Sized(200, 160));
  PushUntil([&] { return script_->Count("1.EncodeFrame 100x100") > 0; });
  pipeline_->RequestTransition(Sized(300, 240));
  AwaitCall("1.Shutdown");
  script_->Change([](auto& now) { now.withholdOutput = false; });
  PushUntilWidth(300);
}

TEST_F(EncoderPipelineTest, LateOutputOfASwappedOutEncoderIsDropped) {
  script_->Change([](auto& now) { now.emitOnShutdown = true; });
  Push();
  pipeline_->RequestTransition(Sized(200, 160));
  PushUntilWidth(200);
  pipeline_->Stop();  // the retired encoder has emitted by then
  for (const Output& output : Outputs()) EXPECT_NE(output.timestamp, 0U);
  EXPECT_EQ(script_->Count("0.Shutdown"), 1U);
  EXPECT_EQ(script_->Count("1.Shutdown"), 1U);
}

TEST_F(EncoderPipelineTest, AFailedCloneReconfiguresInPlaceAndSaysSo) {
  script_->Change([](auto& now) { now.failClone = true; });
  pipeline_->RequestTransition(Sized(200, 160));
  AwaitCsvLines(3);
  EXPECT_EQ(CsvLines()[0],
            "ts,mode,fromW,fromH,toW,toH,cloneMs,firstKeyMs,swapMs,totalMs,framesDropped,error");
  EXPECT_EQ(CsvLines()[1], "5000,Seamless,100,100,200,160,0,,,0,0,clone_failed");
  EXPECT_EQ(CsvLines()[2], "5000,Conservative,100,100,200,160,,,,0,0,");
  EXPECT_EQ(pipeline_->GetEncoderWidth(), 200);
  EXPECT_EQ(pipeline_->GetWidth(), 200);
}

TEST_F(EncoderPipelineTest, ReconfiguringSetsEverythingInOrder) {
  EncoderSettings settings = Sized(320, 180);
  settings.codec = kCodecH264;
  settings.gopSize = 0;
  settings.rateControl = kRateControlVbr;
  settings.frameByteCap = 0;
  settings.peakBitrate = 2'000'000;
  pipeline_->ReconfigureInPlace(settings);
  const std::vector<std::string> expected = {"0.SetCodec 1",
                                             "0.SetGopSize 1",
                                             "0.SetRateControl 2",
                                             "0.SetFrameByteCap 340000",
                                             "0.Configure 320x180 1000000 30",
                                             "0.SetPeakBitrate 2000000",
                                             "0.RequestIdr"};
  EXPECT_EQ(script_->Calls(), expected);
}

TEST_F(EncoderPipelineTest, StopWaitsForACloneUnderConstruction) {
  std::atomic<bool> inside{false};
  std::atomic<bool> mayFinish{false};
  std::atomic<bool> finished{false};
  script_->Change([&](auto& now) {
    now.insideClone = [&] {
      inside = true;
      while (!mayFinish) std::this_thread::yield();
      finished = true;
    };
  });
  pipeline_->RequestTransition(Sized(200, 160));
  EXPECT_TRUE(Eventually([&] { return inside.load(); }));
  Push();  // frames go on meanwhile
  EXPECT_EQ(Outputs().size(), 1U);
  std::thread release([&] { mayFinish = true; });
  pipeline_->Stop();
  EXPECT_TRUE(finished);
  release.join();
  EXPECT_EQ(script_->Count("1.Shutdown"), 1U);
  Push();  // a stopped pipeline takes frames and gives nothing
  EXPECT_EQ(Outputs().size(), 1U);
}

TEST_F(EncoderPipelineTest, WithoutAnEncoderEveryQuestionHasItsEmptyAnswer) {
  EncoderPipeline empty(nullptr, clock_);
  empty.EncodeFrame(nullptr, 0, 0, 0, 0);
  EXPECT_FALSE(empty.Configure(100, 100, 0, 30));
  EXPECT_FALSE(empty.Ready());
  EXPECT_EQ(empty.GetWidth(), 0);
  EXPECT_EQ(empty.GetGopSize(), 1);
  EXPECT_EQ(empty.GetFrameByteCap(), 340'000U);
  EXPECT_EQ(empty.GetDescription(), "");
}

TEST_F(EncoderPipelineTest, FramesRequestsAndSettersRaceWithoutHarm) {
  std::atomic<bool> stop{false};
  std::thread requester([&] {
    for (int round = 0; round < 20; ++round) {
      pipeline_->RequestTransition(Sized(round % 2 ? 200 : 220, 160));
      std::this_thread::yield();
    }
  });
  std::thread setter([&] {
    for (int round = 0; !stop; ++round) {
      pipeline_->SetGopSize(1 + round % 3);
      pipeline_->RequestIdr();
      pipeline_->GetWidth();
      pipeline_->TriggerEmergencyCompression(1);
    }
  });
  for (int frame = 0; frame < 300; ++frame) Push();
  requester.join();
  PushUntil([&] { return pipeline_->GetEncoderWidth() > 100; });
  stop = true;
  setter.join();
  EXPECT_EQ(static_cast<int64_t>(Outputs().size()), pushed_);
}

// The process's topics are opened once, so only what this test adds is looked at.
TEST_F(EncoderPipelineTest, TransitionsTellTheirStory) {
  const ScopedEnvironment allTopics("VELDRIFT_DEBUG_TOPICS", std::nullopt);
  InitDebugTopics();
  const std::filesystem::path file = PathFromText(DebugLogPath("debug_transitions.log"));
  const size_t before = ReadWholeFile(file).value_or("").size();
  EncoderSettings wanted = Sized(200, 160);
  wanted.codec = kCodecH264;
  wanted.rateControl = kRateControlVbr;
  wanted.gopSize = 5;
  pipeline_->RequestTransition(wanted);
  PushUntilWidth(200);
  script_->Change([](auto& now) { now.failClone = true; });
  pipeline_->RequestTransition(Sized(300, 240));
  PushUntilWidth(300);
  pipeline_->Stop();
  const std::string text = ReadWholeFile(file).value_or("").substr(before);
  const char* const lines[] = {
      "begin mode=Seamless fromW=100 fromH=100 toW=200 toH=160 codec=H264 rc=VBR gop=5 bps=1000000",
      "clone ok cloneSetupMs=0.0",
      "swap complete fromW=100 fromH=100 toW=200 toH=160 swapMs=",
      "begin mode=Seamless fromW=200 fromH=160 toW=300 toH=240 codec=HEVC rc=Bitrate gop=1 bps=",
      "clone failed — falling back to conservative in-place reconfigure",
      ("single-encoder reconfigure fromW=200 fromH=160 toW=300 toH=240 durationMs=0.0 "
       "framesDropped=0")};
  size_t at = 0;
  for (const char* line : lines) {
    const size_t found = text.find(std::string(" | TRANSITIONS | ") + line, at);
    ASSERT_NE(found, std::string::npos) << line << "\nin\n" << text;
    at = found;
  }
}

TEST(EncoderPipelineSelfTest, ATransitionOnTheMockCompletesOnce) {
  std::string result;
  EXPECT_TRUE(EncoderPipeline::RunSelfTest("P1.1", result)) << result;
  EXPECT_NE(result.find(" swaps=1"), std::string::npos) << result;
}

}  // namespace
}  // namespace Veldrift
