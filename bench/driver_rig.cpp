#include "bench/driver_rig.h"

#include <algorithm>
#include <chrono>
#include <random>
#include <utility>

#include "encoder/encoder_shell.h"
#include "encoder/transform_backend.h"
#include "support/clock.h"

namespace Veldrift {
namespace {

constexpr uint32_t kBitrate = 30'000'000;
constexpr uint32_t kFps = 60;
constexpr int64_t kFrameMicros = 16'667;
constexpr int32_t kGop = 60;
constexpr std::chrono::seconds kPatience{10};

// Noise only in a band: a codec that really encodes has something to do, and not too much.
std::vector<uint8_t> PictureOf(int32_t width, int32_t height) {
  std::vector<uint8_t> picture(size_t(width) * size_t(height) * 4, 0x60);
  std::mt19937 random(1);
  for (size_t i = 0; i < picture.size() / 8; ++i) picture[i] = uint8_t(random());
  return picture;
}

}  // namespace

DriverRig::DriverRig(Options options)
    : width_(options.height * 16 / 9), height_(options.height), frame_(PictureOf(width_, height_)) {
  const auto makeBackend = [this, make = std::move(options.makePlatform)] {
    return std::make_unique<TransformBackend>(TransformBackend::Environment{
        MakeTimedPlatform(make(), width_, height_, marks_), [] { return true; }, SystemClock()});
  };
  encoder_ = std::make_unique<EncoderShell>(makeBackend, options.engineId);
  encoder_->SetCodec(options.codec);
  encoder_->SetGopSize(kGop);
  encoder_->SetOutputCallback([this](const uint8_t*, size_t bytes, bool, uint64_t) {
    calledBack_ = SystemClock().NowNanos();
    unitBytes_ = bytes;
    out_.release();
  });
}

DriverRig::~DriverRig() { encoder_->Shutdown(); }

int64_t DriverRig::Configure() {
  const int64_t begin = SystemClock().NowNanos();
  const bool opened = encoder_->Configure(uint32_t(width_), uint32_t(height_), kBitrate, kFps);
  return opened ? SystemClock().NowNanos() - begin : -1;
}

bool DriverRig::Encode(FrameCost& cost) {
  marks_.sample = 0;
  marks_.noMore = 0;
  const int64_t begin = SystemClock().NowNanos();
  encoder_->EncodeFrame(frame_.data(), uint32_t(width_), uint32_t(height_), width_ * 4,
                        timestamp_ += kFrameMicros);
  if (!out_.try_acquire_for(kPatience)) return false;
  cost.sample = marks_.sample;
  cost.noMore = marks_.noMore;
  cost.conversion = marks_.conversion;
  cost.toInput = marks_.input - begin - cost.conversion;
  cost.toCallback = calledBack_ - marks_.output;
  return true;
}

double Percentile(std::vector<int64_t> values, double share) {
  const auto at = ptrdiff_t(share * double(values.size() - 1) + 0.5);
  std::nth_element(values.begin(), values.begin() + at, values.end());
  return double(values[size_t(at)]);
}

}  // namespace Veldrift
