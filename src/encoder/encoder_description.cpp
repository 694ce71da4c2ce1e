#include "encoder/encoder_description.h"

#include <cstdio>

namespace Veldrift {
namespace {

constexpr size_t kMaxBytes = 255;

struct ActiveDescription {
  Mutex mutex;
  const EncoderDescription* owner VD_GUARDED_BY(mutex) = nullptr;
  std::string text VD_GUARDED_BY(mutex);
};

ActiveDescription& Active() {
  static ActiveDescription active;
  return active;
}

bool ContinuesCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

// The text cut to at most `bytes`, in front of a character of UTF-8.
void CutAtCharacter(std::string& text, size_t bytes) {
  if (text.size() <= bytes) return;
  while (bytes > 0 && ContinuesCharacter(text[bytes])) --bytes;
  text.resize(bytes);
}

}  // namespace

std::string DescribeEncoder(const EncoderIdentity& identity) {
  char rest[160];
  std::snprintf(rest, sizeof rest, " [%s, %dx%d %s @ %d fps, %u Mbps]", identity.kind,
                identity.width, identity.height, identity.codec != 0 ? "H.264" : "HEVC",
                identity.fps, identity.bitrate / 1'000'000);
  std::string text = identity.name + rest;
  CutAtCharacter(text, kMaxBytes);
  return text;
}

std::string GetActiveEncoderDescription() {
  ActiveDescription& active = Active();
  MutexLock lock(active.mutex);
  return active.text;
}

void EncoderDescription::Set(const std::string& text) {
  {
    ActiveDescription& active = Active();
    MutexLock lock(active.mutex);
    active.owner = this;
    active.text = text;
  }
  MutexLock lock(mutex_);
  text_ = text;
}

void EncoderDescription::Clear() {
  {
    ActiveDescription& active = Active();
    MutexLock lock(active.mutex);
    if (active.owner == this) {
      active.owner = nullptr;
      active.text.clear();
    }
  }
  MutexLock lock(mutex_);
  text_.clear();
}

std::string EncoderDescription::Text() const {
  MutexLock lock(mutex_);
  return text_;
}

}  // namespace Veldrift
