#include "encoder/encoder_pipeline.h"

#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/file.h"
#include "support/debug_topics.h"
#include "tests/support/child.h"
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
  // Feeds frames until `condition` holds; a hang is ended by the test runner's time limit.
  template <typename Condition>
  void PushUntil(Condition condition) {
    while (!condition()) {
      Push();
      std::this_thread::yield();
    }
  }
  void PushUntilWidth(int32_t width) {
    PushUntil([&] { return pipeline_->GetEncoderWidth() == width; });
  }
  void AwaitCall(const std::string& call) {
    while (script_->Count(call) == 0) std::this_thread::yield();
  }
  void AwaitCsvLines(size_t count) {
    while (CsvLines().size() < count) std::this_thread::yield();
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
  while (!inside) std::this_thread::yield();
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
