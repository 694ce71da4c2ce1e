#include "file_pictures_av.h"
#include "file_sound_av.h"
#include "frame_source.h"
#include "platform/file.h"
#include "tools/av/av_handles.h"

namespace Veldrift {

FileSources OpenFileSources(const std::filesystem::path& file, bool stamp) {
  av_log_set_level(AV_LOG_FATAL);
  FileSources sources;
  const std::string name = PathText(file);
  sources.pictures = OpenFilePictures(name, stamp, sources.error);
  if (!sources.pictures) {
    sources.error = "can't read a video from " + name + ": " + sources.error;
    return sources;
  }
  sources.sound = OpenFileSound(name);
  return sources;
}

}  // namespace Veldrift
