#include "media_source.h"

namespace Veldrift {

FileSources OpenFileSources(const std::filesystem::path&, bool, const std::atomic<bool>&) {
  FileSources sources;
  sources.error =
      "this Windows build has no decoder for video files: leave out --input for the generated "
      "picture, or run the Linux build";
  sources.noDecoder = true;
  return sources;
}

}  // namespace Veldrift
