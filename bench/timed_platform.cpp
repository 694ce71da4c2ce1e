#include "bench/timed_platform.h"

#include <string>
#include <utility>
#include <vector>

#include "support/clock.h"

namespace Veldrift {
namespace {

int64_t Now() { return SystemClock().NowNanos(); }

class TimedSink final : public TransformOutputSink {
 public:
  TimedSink(TransformOutputSink& inner, FrameMarks& marks) : inner_(inner), marks_(marks) {}
  void OnOutput(ByteSpan data, bool marked, std::optional<int64_t> time) override {
    marks_.output = Now();
    inner_.OnOutput(data, marked, time);
  }

 private:
  TransformOutputSink& inner_;
  FrameMarks& marks_;
};

class TimedTransform final : public EncoderTransform {
 public:
  TimedTransform(std::unique_ptr<EncoderTransform> inner, FrameMarks& marks)
      : inner_(std::move(inner)), marks_(marks) {}

  bool IsAsynchronous() override { return inner_->IsAsynchronous(); }
  int32_t UnlockAsynchronous(int32_t& readError) override {
    return inner_->UnlockAsynchronous(readError);
  }
  std::optional<int32_t> OfferDevice() override { return inner_->OfferDevice(); }
  int32_t SetOutputType(const TransformFormat& format) override {
    return inner_->SetOutputType(format);
  }
  InputOffer OfferedInput(uint32_t index) override { return inner_->OfferedInput(index); }
  int32_t SetInputType(const TransformFormat& format, std::optional<uint32_t> offered) override {
    return inner_->SetInputType(format, offered);
  }
  bool IsD3d11Aware() override { return inner_->IsD3d11Aware(); }
  bool HasProperties() override { return inner_->HasProperties(); }
  int32_t SetProperty(CodecProperty property, uint32_t value) override {
    return inner_->SetProperty(property, value);
  }
  std::vector<uint8_t> SequenceHeader() override { return inner_->SequenceHeader(); }
  int32_t SendMessage(TransformMessage message) override { return inner_->SendMessage(message); }
  int32_t ProcessInput(TransformSample& sample) override {
    marks_.input = Now();
    return inner_->ProcessInput(sample);
  }
  Output TakeOutput(TransformOutputSink& sink) override {
    TimedSink timed(sink, marks_);
    const int64_t begin = Now();
    const Output output = inner_->TakeOutput(timed);
    if (output.answer == Output::Answer::NeedMoreInput) marks_.noMore = Now() - begin;
    return output;
  }
  StreamChange AcceptStreamChange() override { return inner_->AcceptStreamChange(); }
  int32_t OpenEvents() override { return inner_->OpenEvents(); }
  int32_t RequestEvent(const std::shared_ptr<TransformEventListener>& listener) override {
    return inner_->RequestEvent(listener);
  }
  void CloseEvents() override { inner_->CloseEvents(); }

 private:
  const std::unique_ptr<EncoderTransform> inner_;
  FrameMarks& marks_;
};

class TimedCandidate final : public TransformCandidate {
 public:
  TimedCandidate(std::unique_ptr<TransformCandidate> inner, FrameMarks& marks)
      : inner_(std::move(inner)), marks_(marks) {}
  std::string Name() override { return inner_->Name(); }
  std::string Vendor() override { return inner_->Vendor(); }
  std::unique_ptr<EncoderTransform> Activate(int32_t& error) override {
    std::unique_ptr<EncoderTransform> transform = inner_->Activate(error);
    if (!transform) return nullptr;
    return std::make_unique<TimedTransform>(std::move(transform), marks_);
  }

 private:
  const std::unique_ptr<TransformCandidate> inner_;
  FrameMarks& marks_;
};

class TimedPlatform final : public TransformPlatform {
 public:
  TimedPlatform(std::unique_ptr<TransformPlatform> inner, int32_t width, int32_t height,
                FrameMarks& marks)
      : inner_(std::move(inner)), width_(width), height_(height), marks_(marks) {}

  void OpenDevice(const std::string& engineId) override { inner_->OpenDevice(engineId); }
  void CloseDevice() override { inner_->CloseDevice(); }
  void AwaitGpu() override { inner_->AwaitGpu(); }
  std::vector<std::unique_ptr<TransformCandidate>> Find(TransformClass kind,
                                                        int32_t codec) override {
    std::vector<std::unique_ptr<TransformCandidate>> found = inner_->Find(kind, codec);
    for (std::unique_ptr<TransformCandidate>& candidate : found) {
      candidate = std::make_unique<TimedCandidate>(std::move(candidate), marks_);
    }
    return found;
  }
  std::unique_ptr<TransformSample> MakeSample(size_t bytes, int32_t& error) override {
    const int64_t begin = Now();
    std::unique_ptr<TransformSample> sample = inner_->MakeSample(bytes, error);
    marks_.sample = Now() - begin;
    return sample;
  }
  bool ConvertOnGpu(FrameInput& frame, uint8_t* luma, uint8_t* chroma) override {
    const int64_t begin = Now();
    if (!inner_->ConvertOnGpu(frame, luma, chroma)) {
      frame.ConvertToNv12(luma, chroma, width_, height_);
    }
    marks_.conversion = Now() - begin;
    return true;
  }
  std::string SetUpResident(const ChosenTransform& chosen) override {
    return inner_->SetUpResident(chosen);
  }
  bool ResidentActive() override { return inner_->ResidentActive(); }
  std::unique_ptr<TransformSample> ResidentSample(FrameInput& frame) override {
    const int64_t begin = Now();
    std::unique_ptr<TransformSample> sample = inner_->ResidentSample(frame);
    marks_.conversion = Now() - begin;
    return sample;
  }
  void RefuseResident(int32_t error) override { inner_->RefuseResident(error); }

 private:
  const std::unique_ptr<TransformPlatform> inner_;
  const int32_t width_;
  const int32_t height_;
  FrameMarks& marks_;
};

}  // namespace

std::unique_ptr<TransformPlatform> MakeTimedPlatform(std::unique_ptr<TransformPlatform> inner,
                                                     int32_t width, int32_t height,
                                                     FrameMarks& marks) {
  return std::make_unique<TimedPlatform>(std::move(inner), width, height, marks);
}

}  // namespace Veldrift
