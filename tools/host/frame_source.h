// Where the host's pictures come from.
//
// Threads: the pushing thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "sound_source.h"

namespace Veldrift {

struct PictureFormat {
  int width = 0;
  int height = 0;
  int64_t ticksPerFrame = 0;  // of kTicksPerSecond
};

inline constexpr int64_t kTicksPerSecond = 254'016'000'000;

class FrameSource {
 public:
  virtual ~FrameSource() = default;
  virtual PictureFormat Format() const = 0;
  // Paints the picture of place `index` in the timeline, BGRA. Places never come twice, and some
  // are left out. False if there is none any more.
  virtual bool Paint(uint32_t index, uint8_t* bgra, int rowBytes) = 0;
};

std::unique_ptr<FrameSource> MakePatternSource(int width, int height, double fps);
// The same pictures with a flash at each whole second; MakeClickSource has the clicks to it.
std::unique_ptr<FrameSource> MakeFlashing(std::unique_ptr<FrameSource> pictures);

// What a file opens to. Without pictures, `error` says why; without sound, there is none in it.
struct FileSources {
  std::unique_ptr<FrameSource> pictures;
  std::unique_ptr<SoundSource> sound;
  std::string error;
  bool notBuiltYet = false;  // this system's build can't read files
};

// The file begins anew at its end. `stamp`: the pictures are stamped like generated ones.
FileSources OpenFileSources(const std::filesystem::path& file, bool stamp);

}  // namespace Veldrift
