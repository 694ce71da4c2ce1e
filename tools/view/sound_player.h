// Plays blocks of sound when they are due, through a queue that it keeps short: holes are
// concealed, a drift of the device's clock is followed by stretching, and what has piled up is left
// out.
//
// Threads: belongs to one thread.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "support/clock.h"

namespace Veldrift {

// Where sound goes. Real: SdlSound. Fake: tests/view.
class SoundOutput {
 public:
  virtual ~SoundOutput() = default;
  // What waits to be played.
  virtual int64_t QueuedNs() = 0;
  // Interleaved samples, played behind what waits.
  virtual void Queue(std::span<const float> samples, int rate, int channels) = 0;

  // From leaving the queue to being heard.
  static constexpr int64_t kDeviceNs = 10 * kNanosPerMilli;
};

struct SoundBlock {
  int64_t timeMicros = 0;      // of the timeline
  std::vector<float> samples;  // interleaved
  int rate = 0;
  int channels = 0;
};

class SoundPlayer {
 public:
  explicit SoundPlayer(SoundOutput& output) : output_(output) {}

  // `dueNs`: when the block's first sample should be heard.
  void Play(SoundBlock block, int64_t dueNs, int64_t nowNs);

  // What comes next doesn't go on with what came.
  void BeginAnew() { endMicros_.reset(); }

  // Off by more than this, sound is left out, or silence put in.
  static constexpr int64_t kToleratedNs = 60 * kNanosPerMilli;

 private:
  void ConcealGap(const SoundBlock& block);
  void Silence(const SoundBlock& block, int64_t nanos);
  void Send(const SoundBlock& block);

  SoundOutput& output_;
  std::optional<int64_t> endMicros_;  // of the block before
  std::vector<float> tail_;           // its end, last sample first
  double errorNs_ = 0;                // smoothed: what leaves the queue leaves it in pieces
};

}  // namespace Veldrift
