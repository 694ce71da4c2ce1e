// What a recording holds, as an ordinary player sees it.
#pragma once

#include <filesystem>
#include <string>

namespace Veldrift {

struct RecordingContents {
  bool opened = false;
  std::string codec;
  int width = 0, height = 0;
  bool bt709Limited = false;
  int videoPackets = 0;
  double videoSeconds = 0, audioSeconds = 0;  // from the first to the last time stamp
};

RecordingContents ReadRecording(const std::filesystem::path& path);

}  // namespace Veldrift
