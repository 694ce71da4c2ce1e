// What a viewer got, as the media library reads and decodes it.
#pragma once

#include <string>
#include <vector>

#include "tools/phone/web_mp4.h"

namespace Veldrift {

struct WatchedStream {
  AVCodecID codec = AV_CODEC_ID_NONE;
  int width = 0, height = 0, sampleRate = 0, channels = 0;
  std::vector<double> times;  // of the packets, in seconds
  std::vector<bool> keys;
  size_t decoded = 0;         // pictures, or samples a channel
  std::vector<float> levels;  // of sound: the loudest sample of each 10 ms
};

struct WatchedFile {
  bool read = false;
  std::string failure;  // the first of the decoders
  std::vector<WatchedStream> streams;
};

WatchedFile ReadWatched(const ByteVector& bytes);

}  // namespace Veldrift
