// The pipeline's own test, which runs in the product: a seamless transition on an encoder that
// needs no platform.

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "encoder/encoder_pipeline.h"
#include "encoder/platform_self_test.h"
#include "platform/mutex.h"
#include "support/guarded.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog{kLogSubsystem, "encoder"};

// Emits a start code for every frame and remembers what it was told. Its first two frames are key
// frames; after that one that follows RequestIdr is.
//
// Threads: as the contract says. `callbackMutex_` isn't held while the callback runs.
class MockEncoder final : public IHardwareEncoder {
 public:
  MockEncoder(int32_t width, int32_t height, int32_t fps, int32_t gopSize, uint32_t bitrate,
              bool emitOnShutdown)
      : width_(width),
        height_(height),
        fps_(fps),
        gopSize_(gopSize),
        bitrate_(bitrate),
        emitOnShutdown_(emitOnShutdown) {}
  ~MockEncoder() override { MockEncoder::SetOutputCallback({}); }

  bool Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) override {
    width_ = static_cast<int32_t>(width);
    height_ = static_cast<int32_t>(height);
    bitrate_ = bitrate;
    fps_ = static_cast<int32_t>(fps);
    return true;
  }
  void Shutdown() override {
    if (emitOnShutdown_) Emit(true);
  }
  bool Ready() override { return true; }
  int32_t GetWidth() override { return width_; }
  int32_t GetHeight() override { return height_; }
  int32_t GetFps() override { return fps_; }
  std::string GetDescription() override { return {}; }
  void EncodeFrame(const uint8_t*, uint32_t, uint32_t, int32_t, int64_t) override {
    if (!started_.exchange(true)) {
      Emit(true);
    } else {
      Emit(keyRequested_.exchange(false));
    }
    ++framesEncoded_;
  }
  void RequestIdr() override { keyRequested_ = true; }
  void SetBitrate(uint32_t bitsPerSecond) override { bitrate_ = bitsPerSecond; }
  uint32_t GetBitrate() override { return bitrate_; }
  void SetPeakBitrate(uint32_t) override {}
  void SetGopSize(int32_t frames) override { gopSize_ = frames; }
  int32_t GetGopSize() override { return gopSize_; }
  void SetCodec(int32_t codec) override { codec_ = codec; }
  int32_t GetCodec() override { return codec_; }
  void SetRateControl(int32_t mode, float) override { rateControl_ = mode; }
  int32_t GetRateControl() override { return rateControl_; }
  void TriggerEmergencyCompression(int32_t) override {}
  void SetFrameByteCap(uint32_t bytes) override { frameByteCap_ = bytes; }
  uint32_t GetFrameByteCap() override { return frameByteCap_; }
  void SetOutputCallback(EncodedFrameCallback callback) override {
    MutexLock lock(callbackMutex_);
    std::swap(callback_, callback);
  }
  std::unique_ptr<IHardwareEncoder> Clone(const EncoderSettings& settings) override {
    return std::make_unique<MockEncoder>(settings.width, settings.height, settings.fps,
                                         settings.gopSize, settings.bitrate, emitOnShutdown_);
  }
  bool HasEmittedKeyframe() override { return framesEncoded_ >= 1; }
  void RequestKeyframe() override { RequestIdr(); }
  void SetQualityMode(float) override {}
  void SetHrdBufferBits(int64_t, int64_t) override {}

 private:
  void Emit(bool keyFrame) {
    static constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
    EncodedFrameCallback callback;
    {
      MutexLock lock(callbackMutex_);
      callback = callback_;
    }
    if (callback) callback(kStartCode, sizeof kStartCode, keyFrame, 0);
  }

  std::atomic<int32_t> width_;
  std::atomic<int32_t> height_;
  std::atomic<int32_t> fps_;
  std::atomic<int32_t> gopSize_;
  std::atomic<uint32_t> bitrate_;
  std::atomic<uint32_t> frameByteCap_{kDefaultFrameByteCap};
  std::atomic<int32_t> codec_{kCodecHevc};
  std::atomic<int32_t> rateControl_{kRateControlBitrate};
  const bool emitOnShutdown_;
  std::atomic<bool> started_{false};
  std::atomic<bool> keyRequested_{true};
  std::atomic<int32_t> framesEncoded_{0};
  Mutex callbackMutex_;
  EncodedFrameCallback callback_ VD_GUARDED_BY(callbackMutex_);
};

// Shared by the caller, who may give up waiting, and the worker. `error` is the worker's until
// `done` is set.
struct TransitionTest {
  std::atomic<bool> done{false};
  std::atomic<int32_t> forwarded{0};
  std::atomic<int32_t> swaps{0};
  std::string error;
};

constexpr uint32_t kSmall = 100;
constexpr uint32_t kLarge = 200;

void Push(EncoderPipeline& pipeline, const std::vector<uint8_t>& picture, uint32_t side,
          int64_t timestamp) {
  pipeline.EncodeFrame(picture.data(), side, side, static_cast<int32_t>(side * 4), timestamp);
}

void RequestLarge(EncoderPipeline& pipeline) {
  EncoderSettings settings;
  settings.width = settings.height = kLarge;
  settings.bitrate = 2'000'000;
  pipeline.RequestTransition(settings);
}

void AwaitSwap(EncoderPipeline& pipeline, const std::vector<uint8_t>& picture,
               TransitionTest& test) {
  constexpr int kPasses = 250;
  for (int pass = 0; pass < kPasses; ++pass) {
    Push(pipeline, picture, kSmall, 100 + pass);
    if (pipeline.GetEncoderWidth() == kLarge && pipeline.GetEncoderHeight() == kLarge) {
      ++test.swaps;
      return;
    }
    SystemClock().SleepFor(2 * kNanosPerMilli);
  }
}

void RunTransitionTest(const std::shared_ptr<TransitionTest>& test) {
  const std::vector<uint8_t> picture(size_t{kLarge} * kLarge * 4, 0);
  auto pipeline = std::make_unique<EncoderPipeline>(std::make_unique<MockEncoder>(
      kSmall, kSmall, 30, /*gopSize=*/1, /*bitrate=*/1'000'000, /*emitOnShutdown=*/true));
  pipeline->SetOutputCallback(
      [test](const uint8_t*, uint64_t, bool, uint64_t) { ++test->forwarded; });
  for (int frame = 0; frame < 5; ++frame) Push(*pipeline, picture, kSmall, frame);
  const int32_t baseline = test->forwarded;
  RequestLarge(*pipeline);
  AwaitSwap(*pipeline, picture, *test);
  for (int frame = 0; frame < 5; ++frame) Push(*pipeline, picture, kLarge, 400 + frame);
  pipeline.reset();
  if (test->forwarded <= baseline) {
    test->error = "no output forwarded after steady phase";
  } else if (test->swaps == 0) {
    test->error = "seamless swap never completed";
  }
  test->done = true;
}

bool AnswerTransitionTest(const TransitionTest& test, std::string& result) {
  if (!test.done) {
    result = "TIMEOUT (possible re-introduced pipeline deadlock)";
    return false;
  }
  result = "forwarded=" + std::to_string(test.forwarded) + " swaps=" + std::to_string(test.swaps);
  if (!test.error.empty()) result += " err=" + test.error;
  return test.error.empty() && test.forwarded > 0 && test.swaps > 0;
}

}  // namespace

bool EncoderPipeline::RunSelfTest(const std::string& name, std::string& result) {
  if (name != "P1.1") return RunPlatformEncoderSelfTest(name, result);
  constexpr int kPolls = 500;
  auto test = std::make_shared<TransitionTest>();
  // Detached: the test exists to find a deadlock, and then there is no end to wait for.
  std::thread([test] {
    RunGuarded(kLog, "transition test", [&] { RunTransitionTest(test); });
  }).detach();
  for (int poll = 0; poll < kPolls && !test->done; ++poll) {
    SystemClock().SleepFor(10 * kNanosPerMilli);
  }
  return AnswerTransitionTest(*test, result);
}

}  // namespace Veldrift
