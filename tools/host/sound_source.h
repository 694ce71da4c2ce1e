// Where the host's sound comes from.
//
// Threads: one at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace Veldrift {

struct HostSoundFormat {
  int sampleRate = 48'000;
  int channels = 2;
};

class SoundSource {
 public:
  virtual ~SoundSource() = default;
  virtual HostSoundFormat Format() const = 0;
  // The next `samples` samples of each channel.
  virtual void Next(float* const* channels, uint32_t samples) = 0;
};

// A quiet tone, another one on the right.
std::unique_ptr<SoundSource> MakeToneSource();
// Silence, and a click at each whole second.
std::unique_ptr<SoundSource> MakeClickSource();

}  // namespace Veldrift
