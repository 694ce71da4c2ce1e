#include <cmath>
#include <numbers>

#include "media_source.h"
#include "support/clock.h"
#include "tools/pattern/clapper.h"
#include "tools/pattern/pattern.h"

namespace Veldrift {

namespace {

constexpr double kLeftHz = 440;
constexpr double kRightHz = 660;
constexpr double kAmplitude = 0.1;

class PatternSource final : public FrameSource {
 public:
  explicit PatternSource(const PictureFormat& format) : format_(format) {}

  PictureFormat Format() const override { return format_; }
  void SetFormat(const PictureFormat& format) override { format_ = format; }

  bool Paint(int64_t, uint32_t number, uint8_t* bgra, int rowBytes) override {
    const auto nowMicros = uint64_t(SteadyNanos() / kNanosPerMicro);
    PaintPattern(bgra, format_.width, format_.height, rowBytes, {number, nowMicros});
    return true;
  }

 private:
  PictureFormat format_;
};

class ToneSource final : public SoundSource {
 public:
  HostSoundFormat Format() const override { return {}; }

  void GoTo(int64_t) override {}  // a tone sounds alike everywhere

  void Next(float* const* channels, uint32_t samples) override {
    for (uint32_t i = 0; i < samples; ++i, ++position_) {
      const double turn = 2 * std::numbers::pi * double(position_) / Format().sampleRate;
      channels[0][i] = float(kAmplitude * std::sin(turn * kLeftHz));
      channels[1][i] = float(kAmplitude * std::sin(turn * kRightHz));
    }
    // Both tones are whole after a second: the sines stay exact for ever.
    position_ %= uint64_t(Format().sampleRate);
  }

 private:
  uint64_t position_ = 0;
};

// Another source's pictures, with the flash over them.
class FlashingSource final : public FrameSource {
 public:
  explicit FlashingSource(std::unique_ptr<FrameSource> pictures) : pictures_(std::move(pictures)) {}

  PictureFormat Format() const override { return pictures_->Format(); }
  void SetFormat(const PictureFormat& format) override { pictures_->SetFormat(format); }

  bool Paint(int64_t place, uint32_t number, uint8_t* bgra, int rowBytes) override {
    if (!pictures_->Paint(place, number, bgra, rowBytes)) return false;
    const PictureFormat format = Format();
    if (FlashIsDue(double(place) * double(format.ticksPerFrame) / double(kTicksPerSecond))) {
      PaintFlash(bgra, format.width, format.height, rowBytes);
    }
    return true;
  }

 private:
  const std::unique_ptr<FrameSource> pictures_;
};

class ClickSource final : public SoundSource {
 public:
  HostSoundFormat Format() const override { return {}; }

  void GoTo(int64_t sample) override { position_ = uint64_t(sample); }

  void Next(float* const* channels, uint32_t samples) override {
    for (uint32_t i = 0; i < samples; ++i, ++position_) {
      channels[0][i] = channels[1][i] = ClickSample(position_, Format().sampleRate);
    }
  }

 private:
  uint64_t position_ = 0;
};

}  // namespace

int64_t TicksPerFrame(double fps) { return int64_t(std::llround(double(kTicksPerSecond) / fps)); }

std::unique_ptr<FrameSource> MakePatternSource(int width, int height, double fps) {
  return std::make_unique<PatternSource>(PictureFormat{width, height, TicksPerFrame(fps)});
}

std::unique_ptr<SoundSource> MakeToneSource() { return std::make_unique<ToneSource>(); }

std::unique_ptr<FrameSource> MakeFlashing(std::unique_ptr<FrameSource> pictures) {
  return std::make_unique<FlashingSource>(std::move(pictures));
}

std::unique_ptr<SoundSource> MakeClickSource() { return std::make_unique<ClickSource>(); }

}  // namespace Veldrift
