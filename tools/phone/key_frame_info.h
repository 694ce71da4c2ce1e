// What a key frame in Annex B form says about itself, before any decoder is asked.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

extern "C" {
#include <libavformat/avformat.h>
}

namespace Veldrift {

struct KeyFrameInfo {
  AVCodecID codec = AV_CODEC_ID_NONE;
  int width = 0;
  int height = 0;
  std::vector<std::byte> parameterSets;  // with their start codes

  bool operator==(const KeyFrameInfo&) const = default;
};

// Nothing if there are no parameter sets in front of the picture, or nonsense in them.
std::optional<KeyFrameInfo> InspectKeyFrame(std::span<const std::byte> accessUnit);

// A stream of `format`, in microseconds, for the video that begins with this key frame. The file
// owns it. Null: it can't be had.
AVStream* AddVideoStream(AVFormatContext& format, const KeyFrameInfo& info);

}  // namespace Veldrift
