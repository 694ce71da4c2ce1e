#include "session/remembered_settings.h"

#include <algorithm>
#include <initializer_list>
#include <vector>

#include "net/control_protocol.h"

namespace Veldrift {

namespace {
constexpr int32_t kMaxQuality = 100;
constexpr int32_t kHighestGopMode = 3;
}  // namespace

void RememberedSettings::Remember(std::atomic<int32_t>& field, int32_t value) {
  field = value;
  hasClientSettings_ = true;
}

void RememberedSettings::RememberEncoderMode(int32_t mode, int32_t quality) {
  quality_ = quality;
  Remember(encoderMode_, mode);
}

ClientSettings RememberedSettings::Copy() const {
  ClientSettings settings;
  settings.quality = quality_;
  settings.shortSideCap = shortSideCap_;
  settings.codec = codec_;
  settings.gopSize = gopSize_;
  settings.encoderMode = encoderMode_;
  settings.hasClientSettings = hasClientSettings_;
  settings.gopMode = gopMode_;
  return settings;
}

void RememberedSettings::Replay(ISessionInstance& instance) const {
  const ClientSettings settings = Copy();
  const auto replay = [&instance](uint8_t opcode, std::initializer_list<int32_t> bytes) {
    std::vector<std::byte> payload;
    for (const int32_t byte : bytes) payload.push_back(std::byte(byte & 0xFF));
    instance.HandleControlCommand(opcode, payload);
  };
  if (settings.codec == 0 || settings.codec == 1) replay(kSetCodec, {settings.codec});
  if (settings.shortSideCap > 0) {
    replay(kSetMaxResolution, {settings.shortSideCap, settings.shortSideCap >> 8});
  }
  if (settings.gopMode >= 0 && settings.gopMode <= kHighestGopMode) {
    replay(kSetGopMode, {settings.gopMode});
  }
  if (settings.encoderMode == 0 || settings.encoderMode == 1) {
    replay(kSetEncoderMode, {settings.encoderMode, std::clamp(settings.quality, 0, kMaxQuality)});
  }
}

}  // namespace Veldrift
