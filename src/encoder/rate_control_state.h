// The arithmetic of rate control that every encoder shares: clamps, thresholds and counts. How a
// value reaches the codec is the encoder's own.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

namespace Veldrift {

inline constexpr uint32_t kDefaultBitrate = 15'000'000;
inline constexpr uint32_t kMinFrameByteCap = 100'000;
inline constexpr uint32_t kMaxFrameByteCap = 20'000'000;

// The worst quantiser of both codecs.
inline constexpr int kEmergencyQp = 51;

// 0 to 1; anything that isn't a number becomes 0.
float ClampQuality(float quality);
// Steps below 0.005 aren't worth a change.
bool QualityDiffers(float a, float b);
// `quality` x 100, truncated, at most 100.
uint32_t QualityPercent(float quality);

uint32_t ClampFrameByteCap(uint32_t bytes);

// The ceiling in bits per second: `peakBitrate` in VBR if it is set and not below the mean, else
// 1.3 times the mean.
uint32_t MaxBitrate(int32_t rateControl, uint32_t bitrate, uint32_t peakBitrate);

// A new ceiling for a running VBR encoder: never below the mean.
uint32_t PeakAtLeastMean(uint32_t peakBitrate, uint32_t bitrate);

// Mean and ceiling for a decoder buffer of `bufferBits` at `averageBits` per second, each at most
// 4,000,000,000; nothing unless both are above 0.
struct HrdRates {
  uint32_t mean;
  uint32_t max;
};
std::optional<HrdRates> RatesForHrd(int64_t bufferBits, int64_t averageBits);

// Frames that are still to be compressed as far as the codec can.
// Threads: Trigger from any, also from inside the output callback; Take under the encoder's lock.
class EmergencyCount {
 public:
  // Replaces the remaining count; false, and no change, for a count below 1.
  bool Trigger(int32_t frames);
  // A frame is left.
  bool Due() const { return frames_ > 0; }
  // Takes one frame off the count; false if none is left.
  bool Take();

 private:
  std::atomic<int32_t> frames_{0};
};

}  // namespace Veldrift
