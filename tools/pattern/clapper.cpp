#include "tools/pattern/clapper.h"

#include <cmath>
#include <cstddef>
#include <cstring>

namespace Veldrift {

namespace {

constexpr double kFlashSeconds = 0.1;
constexpr double kRounding = 1e-6;  // of a time that was counted in whole frames
constexpr int kFlashShare = 4;      // of the picture's height
constexpr int kBrightLuma = 180;    // on average; the scene itself stays below
constexpr int kClickShare = 100;    // of a second
constexpr int kClickHz = 1000;
constexpr float kClickLevel = 0.8F;

}  // namespace

bool FlashIsDue(double seconds) {
  const double since = seconds + kRounding - std::floor(seconds + kRounding);
  return since < kFlashSeconds;
}

void PaintFlash(uint8_t* bgra, int width, int height, int strideBytes) {
  for (int y = 0; y < height / kFlashShare; ++y) {
    std::memset(bgra + std::ptrdiff_t(y) * strideBytes, 0xFF, size_t(width) * 4);
  }
}

bool HasFlash(const uint8_t* luma, int width, int height, int strideBytes) {
  const int rows = height / kFlashShare;
  int64_t sum = 0;
  for (int y = 0; y < rows; ++y) {
    for (int x = 0; x < width; ++x) sum += luma[std::ptrdiff_t(y) * strideBytes + x];
  }
  return sum > int64_t{kBrightLuma} * rows * width;
}

float ClickSample(uint64_t index, int sampleRate) {
  const auto rate = uint64_t(sampleRate);
  const uint64_t since = index % rate;
  if (since >= rate / kClickShare) return 0;
  return since * 2 * kClickHz / rate % 2 == 0 ? kClickLevel : -kClickLevel;
}

bool IsClick(float sample) { return std::abs(sample) > kClickLevel / 2; }

}  // namespace Veldrift
