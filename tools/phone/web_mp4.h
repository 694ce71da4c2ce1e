// The stream as browsers take it: fragmented MP4, the head by the media library, and behind it a
// fragment a packet by hand, since each has to lie exactly where its time stamp says.
//
// Threads: any; functions only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "key_frame_info.h"
#include "tools/av/av_handles.h"

namespace Veldrift {

using ByteVector = std::vector<std::byte>;

// One picture or one packet of sound, with its boxes.
struct WebFragment {
  ByteVector bytes;
  bool video = false;
  bool keyFrame = false;
  int64_t timeMicros = 0;
};

// A picture lasts until the next one, of which nobody knows when it comes. Browsers throw away what
// comes later than twice this, up to a key frame, and some show nothing new before a very long one
// is over.
inline constexpr int64_t kPictureMicros = 200'000;

// The file's head for these streams; `sound` may be null. Empty if the library refuses.
ByteVector InitSegment(const KeyFrameInfo& picture, const AVCodecContext* sound);

// What stands in a media type for the picture of `init`: "avc1.640028", "hvc1.1.6.L93.90".
std::string CodecText(const KeyFrameInfo& picture, std::span<const std::byte> init);

// `accessUnit` is Annex B; `number` counts all fragments of a file.
WebFragment PictureFragment(uint32_t number, int64_t timeMicros, bool keyFrame,
                            std::span<const std::byte> accessUnit);

// `sampleTime` and `samples` are in samples of `sampleRate`.
WebFragment SoundFragment(uint32_t number, int64_t sampleTime, int64_t samples, int sampleRate,
                          std::span<const std::byte> packet);

// A box without any meaning, to see whether somebody still reads.
std::span<const std::byte> IdleBox();

}  // namespace Veldrift
