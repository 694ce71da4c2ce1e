#include "session/engine_switch.h"

#include <algorithm>
#include <utility>

#include "net/control_protocol.h"
#include "session/engine_list.h"
#include "support/plugin_log.h"

namespace Veldrift {

namespace {
constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr const char* kSeedEngine = "auto";  // before the phone has chosen
}  // namespace

bool EngineSwitch::SeatDefaultEncoder() {
  std::unique_ptr<IHardwareEncoder> encoder = services_.createDefaultEncoder();
  if (!encoder) return false;
  seat_.Seat(std::move(encoder));
  return true;
}

void EngineSwitch::SwitchEncoderEngine(const std::string& id) {
  MutexLock lock(switchMutex_);
  if (id == engineId_) {
    PluginLog(kLog, kLogInfo, "engine switch: same id '%s' — no-op", id.c_str());
    return;
  }
  if (engineId_ == kSeedEngine) {
    PluginLog(kLog, kLogInfo, "engine seed 'auto' → '%s' — rebuilding to honor saved choice",
              id.c_str());
  } else {
    PluginLog(kLog, kLogInfo, "engine switch: '%s' → '%s' — full refresh", engineId_.c_str(),
              id.c_str());
    announcer_.TellOfSwitching();
  }
  std::unique_ptr<IHardwareEncoder> encoder = CreateEncoderFor(id);
  if (!encoder) return;
  seat_.Seat(std::move(encoder));
  announcer_.ResetAnnouncedState(false);
  engineId_ = id;
  PluginLog(kLog, kLogInfo, "engine switch: rebuilt pipeline with '%s'", id.c_str());
  announcer_.PublishEncoderStatus();
}

std::unique_ptr<IHardwareEncoder> EngineSwitch::CreateEncoderFor(const std::string& id) {
  std::unique_ptr<IHardwareEncoder> encoder = services_.createForEngine(id);
  if (encoder) return encoder;
  PluginLog(kLog, kLogError,
            "engine switch: CreateForEngine('%s') failed — falling back to default", id.c_str());
  encoder = services_.createDefaultEncoder();
  if (!encoder) {
    PluginLog(kLog, kLogError, "engine switch: no encoder available — keeping current pipeline");
  }
  return encoder;
}

std::string EngineSwitch::EngineId() const {
  MutexLock lock(switchMutex_);
  return engineId_;
}

void EngineSwitch::SendEncoderEngineList() {
  const std::vector<EngineEntry> engines = services_.enumerateEngines();
  const std::vector<std::byte> payload = EncodeEngineList(engines);
  if (services_.transport.SendControl(kEncoderEngineList, payload)) {
    PluginLog(kLog, kLogInfo, "SendControl: kEncoderEngineList %zu entries (%zu B frame)",
              std::min<size_t>(engines.size(), 255), payload.size());
  }
}

}  // namespace Veldrift
