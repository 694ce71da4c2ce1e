// Where the host's pictures and sound come from: generated, or a file's.
//
// Threads: pictures and sound are used at the same time, each by one thread at a time.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

namespace Veldrift {

inline constexpr int64_t kTicksPerSecond = 254'016'000'000;

struct PictureFormat {
  int width = 0;
  int height = 0;
  int64_t ticksPerFrame = 0;  // of kTicksPerSecond

  double Fps() const { return double(kTicksPerSecond) / double(ticksPerFrame); }
};

class FrameSource {
 public:
  virtual ~FrameSource() = default;
  virtual PictureFormat Format() const = 0;
  // Another size or rate from the next picture on; a file's pictures are scaled to it.
  virtual void SetFormat(const PictureFormat& format) = 0;
  // Paints the picture of place `place` of the timeline, BGRA, in any order. `number` is what its
  // stamp says, if it has one. False if there is none.
  virtual bool Paint(int64_t place, uint32_t number, uint8_t* bgra, int rowBytes) = 0;
};

struct HostSoundFormat {
  int sampleRate = 48'000;
  int channels = 2;
};

class SoundSource {
 public:
  virtual ~SoundSource() = default;
  virtual HostSoundFormat Format() const = 0;
  // Next begins with this sample of the timeline.
  virtual void GoTo(int64_t sample) = 0;
  // The next `samples` samples of each channel.
  virtual void Next(float* const* channels, uint32_t samples) = 0;
};

int64_t TicksPerFrame(double fps);

std::unique_ptr<FrameSource> MakePatternSource(int width, int height, double fps);
// A quiet tone, another one on the right.
std::unique_ptr<SoundSource> MakeToneSource();

// The same pictures with a flash at each whole second, and a click there.
std::unique_ptr<FrameSource> MakeFlashing(std::unique_ptr<FrameSource> pictures);
std::unique_ptr<SoundSource> MakeClickSource();

// What a file opens to. Without pictures, `error` says why; without sound, there is none in it.
struct FileSources {
  std::unique_ptr<FrameSource> pictures;
  std::unique_ptr<SoundSource> sound;
  std::string error;
  std::string note;        // what a user should know of the file although it plays
  bool noDecoder = false;  // this system's build can't read files
};

// The file begins anew at its end. `stamp`: the pictures are stamped like generated ones. Opening
// and reading end early once `interrupted`.
FileSources OpenFileSources(const std::filesystem::path& file, bool stamp,
                            const std::atomic<bool>& interrupted);

}  // namespace Veldrift
