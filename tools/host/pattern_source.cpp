#include <cmath>

#include "frame_source.h"
#include "support/clock.h"
#include "tools/pattern/pattern.h"

namespace Veldrift {

namespace {

class PatternSource final : public FrameSource {
 public:
  explicit PatternSource(const PictureFormat& format) : format_(format) {}

  PictureFormat Format() const override { return format_; }

  bool Paint(uint32_t index, uint8_t* bgra, int rowBytes) override {
    const auto nowMicros = uint64_t(SteadyNanos() / kNanosPerMicro);
    PaintPattern(bgra, format_.width, format_.height, rowBytes, {index, nowMicros});
    return true;
  }

 private:
  const PictureFormat format_;
};

}  // namespace

std::unique_ptr<FrameSource> MakePatternSource(int width, int height, double fps) {
  const auto ticks = int64_t(std::llround(double(kTicksPerSecond) / fps));
  return std::make_unique<PatternSource>(PictureFormat{width, height, ticks});
}

}  // namespace Veldrift
