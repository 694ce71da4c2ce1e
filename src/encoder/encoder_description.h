// The one line that names the active encoder.
#pragma once

#include <cstdint>
#include <string>

#include "platform/mutex.h"

namespace Veldrift {

struct EncoderIdentity {
  std::string name;  // the codec's own name
  const char* kind;  // "SW", "HW", "HW-async"
  int32_t width;
  int32_t height;
  int32_t codec;
  int32_t fps;
  uint32_t bitrate;  // bits per second in force, shown in whole Mbps
};

// "name [kind, 1280x720 HEVC @ 30 fps, 15 Mbps]", at most 255 bytes; no character is cut in two.
std::string DescribeEncoder(const EncoderIdentity& identity);

// The description of the encoder that was configured last in this process, empty when that one is
// gone, whatever others do meanwhile: what a window shows without a way to the session.
// Threads: any; a leaf mutex of its own.
std::string GetActiveEncoderDescription();

// One encoder's description, which it sets while it is configured. Setting it makes it the
// process's active one; clearing it leaves another encoder's alone.
//
// Threads: any; leaf mutexes.
class EncoderDescription {
 public:
  EncoderDescription() = default;
  ~EncoderDescription() { Clear(); }
  EncoderDescription(const EncoderDescription&) = delete;
  EncoderDescription& operator=(const EncoderDescription&) = delete;

  void Set(const std::string& text);
  void Clear();
  std::string Text() const;

 private:
  mutable Mutex mutex_;
  std::string text_ VD_GUARDED_BY(mutex_);
};

}  // namespace Veldrift
