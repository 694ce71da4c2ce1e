// The one line that names the active encoder.
#pragma once

#include <cstdint>
#include <string>

namespace Veldrift {

struct EncoderIdentity {
  std::string name;  // the codec's own name
  const char* kind;  // "SW", "HW", "HW-async"
  int32_t width;
  int32_t height;
  int32_t codec;
  int32_t fps;
  uint32_t bitrate;  // bits per second, shown in whole Mbps
};

// "name [kind, 1280x720 HEVC @ 30 fps, 15 Mbps]", at most 255 bytes.
std::string DescribeEncoder(const EncoderIdentity& identity);

// The description of the encoder that was configured last in this process, empty when it is gone:
// what a window shows without a way to the session. Threads: any; a leaf mutex of its own.
std::string GetActiveEncoderDescription();
void SetActiveEncoderDescription(const std::string& description);

}  // namespace Veldrift
