#include "encoder/rate_control_state.h"

#include <algorithm>
#include <cmath>

#include "encoder/hardware_encoder.h"

namespace Veldrift {
namespace {

constexpr int64_t kMaxRate = 4'000'000'000;
constexpr float kQualityStep = 0.005F;

uint32_t ClampRate(int64_t bitsPerSecond) {
  return static_cast<uint32_t>(std::min(bitsPerSecond, kMaxRate));
}

}  // namespace

float ClampQuality(float quality) {
  if (!(quality > 0.0F)) return 0.0F;
  return std::min(quality, 1.0F);
}

bool QualityDiffers(float a, float b) { return std::fabs(a - b) >= kQualityStep; }

uint32_t QualityPercent(float quality) {
  return std::min(static_cast<uint32_t>(ClampQuality(quality) * 100.0F), 100U);
}

uint32_t ClampFrameByteCap(uint32_t bytes) {
  return std::clamp(bytes, kMinFrameByteCap, kMaxFrameByteCap);
}

uint32_t MaxBitrate(int32_t rateControl, uint32_t bitrate, uint32_t peakBitrate) {
  const bool peakCounts =
      rateControl == kRateControlVbr && peakBitrate != 0 && peakBitrate >= bitrate;
  if (peakCounts) return peakBitrate;
  return static_cast<uint32_t>(std::min<uint64_t>(uint64_t{bitrate} * 13 / 10, UINT32_MAX));
}

uint32_t PeakAtLeastMean(uint32_t peakBitrate, uint32_t bitrate) {
  return std::max(peakBitrate, bitrate);
}

std::optional<HrdRates> RatesForHrd(int64_t bufferBits, int64_t averageBits) {
  if (bufferBits <= 0 || averageBits <= 0) return std::nullopt;
  const int64_t mean = std::min(averageBits, kMaxRate);
  // Each is cut first, so that the sum can't overflow.
  return HrdRates{ClampRate(mean), ClampRate(std::min(bufferBits, kMaxRate) + mean)};
}

bool EmergencyCount::Trigger(int32_t frames) {
  if (frames < 1) return false;
  frames_ = frames;
  return true;
}

bool EmergencyCount::Take() {
  int32_t left = frames_;
  while (left > 0) {
    if (frames_.compare_exchange_weak(left, left - 1)) return true;
  }
  return false;
}

}  // namespace Veldrift
