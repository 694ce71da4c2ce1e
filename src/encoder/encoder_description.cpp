#include "encoder/encoder_description.h"

#include <cstdio>

#include "platform/mutex.h"

namespace Veldrift {
namespace {

struct ActiveDescription {
  Mutex mutex;
  std::string text VD_GUARDED_BY(mutex);
};

ActiveDescription& Active() {
  static ActiveDescription active;
  return active;
}

}  // namespace

std::string DescribeEncoder(const EncoderIdentity& identity) {
  char text[256];
  std::snprintf(text, sizeof text, "%s [%s, %dx%d %s @ %d fps, %u Mbps]", identity.name.c_str(),
                identity.kind, identity.width, identity.height,
                identity.codec != 0 ? "H.264" : "HEVC", identity.fps, identity.bitrate / 1'000'000);
  return text;
}

std::string GetActiveEncoderDescription() {
  ActiveDescription& active = Active();
  MutexLock lock(active.mutex);
  return active.text;
}

void SetActiveEncoderDescription(const std::string& description) {
  ActiveDescription& active = Active();
  MutexLock lock(active.mutex);
  active.text = description;
}

}  // namespace Veldrift
