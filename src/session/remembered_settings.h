// What the phone chose last, for instances that the host makes later.
#pragma once

#include <atomic>
#include <cstdint>

#include "session/client_settings.h"
#include "session/session_instance.h"

namespace Veldrift {

// Threads: any; each value on its own. A copy is not consistent as a whole, nor need it be.
class RememberedSettings {
 public:
  void RememberCodec(int32_t codec) { Remember(codec_, codec); }
  void RememberGopMode(int32_t mode) { Remember(gopMode_, mode); }
  void RememberGopSize(int32_t frames) { Remember(gopSize_, frames); }
  void RememberShortSideCap(int32_t cap) { Remember(shortSideCap_, cap); }
  void RememberEncoderMode(int32_t mode, int32_t quality);

  // Whether there is anything to replay.
  bool Any() const { return hasClientSettings_; }
  ClientSettings Copy() const;

  // Runs them through the instance's command handler, which acknowledges them to the phone. A
  // remembered VBR mode is left out, and so is the engine.
  void Replay(ISessionInstance& instance) const;

 private:
  void Remember(std::atomic<int32_t>& field, int32_t value);

  std::atomic<int32_t> quality_{-1}, shortSideCap_{0}, codec_{-1}, gopSize_{0}, gopMode_{-1},
      encoderMode_{-1};
  std::atomic<bool> hasClientSettings_{false};
};

}  // namespace Veldrift
