#include <cmath>
#include <numbers>

#include "sound_source.h"

namespace Veldrift {

namespace {

constexpr double kLeftHz = 440;
constexpr double kRightHz = 660;
constexpr double kAmplitude = 0.1;

class ToneSource final : public SoundSource {
 public:
  HostSoundFormat Format() const override { return {}; }

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

}  // namespace

std::unique_ptr<SoundSource> MakeToneSource() { return std::make_unique<ToneSource>(); }

}  // namespace Veldrift
