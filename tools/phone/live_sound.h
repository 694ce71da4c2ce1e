// The sound of a live stream: one track without a hole from the start on, since a player that was
// promised sound waits for it. What doesn't come becomes silence, and what comes in another format
// is converted to the track's.
//
// Threads: belongs to one thread.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "tools/av/av_handles.h"
#include "tools/receiver/sound_samples.h"
#include "tools/receiver/whole_frame.h"

namespace Veldrift {

class LiveSound {
 public:
  // Interleaved samples of the track, each call's behind the last one's. False: nobody wants more.
  using Output = std::function<bool(std::span<const float> samples, int64_t timeMicros)>;

  LiveSound(const SoundFormat& format, Output output)
      : format_(format), output_(std::move(output)) {}

  // A block that begins at this time of the stream. A hole before it becomes silence, and what the
  // track has already isn't written twice.
  bool Add(const WholeFrame& block, int64_t timeMicros);

  // A picture is shown from this time on: whether the sound that belongs to it may still come is
  // decided by how long none came.
  bool Accompany(int64_t pictureMicros);

  // What is taken for a track whose sound isn't known yet.
  static constexpr SoundFormat kUsual{48'000, 2};

 private:
  std::vector<float> Converted(const WholeFrame& block);
  bool WriteSilence(int64_t samples);
  bool Write(std::span<const float> samples);
  int64_t SamplesIn(int64_t micros) const;

  const SoundFormat format_;
  const Output output_;
  SoundFormat source_;  // of the resampler
  Resampler resampler_;
  int64_t end_ = 0;     // of the track, in samples
  bool silent_ = true;  // it ends with silence, which goes on until sound comes
};

}  // namespace Veldrift
