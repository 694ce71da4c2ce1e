#include "frame_source.h"
#include "tools/pattern/clapper.h"

namespace Veldrift {

namespace {

// Another source's pictures, with the flash over them.
class FlashingSource final : public FrameSource {
 public:
  explicit FlashingSource(std::unique_ptr<FrameSource> pictures) : pictures_(std::move(pictures)) {}

  PictureFormat Format() const override { return pictures_->Format(); }

  bool Paint(uint32_t index, uint8_t* bgra, int rowBytes) override {
    if (!pictures_->Paint(index, bgra, rowBytes)) return false;
    const PictureFormat format = Format();
    if (FlashIsDue(double(index) * double(format.ticksPerFrame) / double(kTicksPerSecond))) {
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

  void Next(float* const* channels, uint32_t samples) override {
    for (uint32_t i = 0; i < samples; ++i, ++position_) {
      channels[0][i] = channels[1][i] = ClickSample(position_, Format().sampleRate);
    }
  }

 private:
  uint64_t position_ = 0;
};

}  // namespace

std::unique_ptr<FrameSource> MakeFlashing(std::unique_ptr<FrameSource> pictures) {
  return std::make_unique<FlashingSource>(std::move(pictures));
}

std::unique_ptr<SoundSource> MakeClickSource() { return std::make_unique<ClickSource>(); }

}  // namespace Veldrift
