#include "frame_source.h"

namespace Veldrift {

FileSources OpenFileSources(const std::filesystem::path&, bool) {
  FileSources sources;
  sources.error = "the Windows build can't read video files yet: use --pattern";
  sources.notBuiltYet = true;
  return sources;
}

}  // namespace Veldrift
