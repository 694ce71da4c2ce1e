#include <memory>

#include "encoder/hardware_encoder.h"
#include "encoder/mf/mf_platform.h"
#include "encoder/output_port.h"
#include "encoder/platform_self_test.h"
#include "encoder/rate_control_state.h"
#include "encoder/transform_backend.h"
#include "identity/install_identity.h"

namespace Veldrift {
namespace {

// Opens an encoder as a session would, and says whether its frames would stay on the graphics
// device.
bool ReportResidency(std::string& result) {
  EncoderPlan plan;
  plan.width = 1920;
  plan.height = 1080;
  plan.bitrate = kDefaultBitrate;
  plan.maxBitrate = MaxBitrate(plan.rateControl, plan.bitrate, 0);
  TransformBackend backend(
      {std::make_unique<MfPlatform>(), &IsAsyncHwEncodersEnabled, SystemClock()});
  OpenedEncoder opened;
  const bool configured = backend.Open(plan, std::make_shared<OutputPort>(), opened);
  const bool active = configured && backend.ResidentActive();
  const std::string& status = backend.ResidentStatus();
  result = std::string("GPU-resident ") + (active ? "ACTIVE" : "inactive") + " — " +
           (status.empty() ? "(no status; encoder unconfigured)" : status);
  if (!configured) result += "  [Configure FAILED — no encoder MFT]";
  return configured;
}

// Beside an encoder's life, which starts and stops the media layer if it is the only one.
bool RaceBesideAnEncoder(std::string& result) {
  bool raced = false;
  {
    const std::unique_ptr<IHardwareEncoder> encoder = MakeMfEncoder("auto");
    raced = RaceOutputPort(result);
  }
  result += "; MFStartup balance ok (no crash/underflow)";
  return raced;
}

}  // namespace

bool RunPlatformEncoderSelfTest(const std::string& name, std::string& result) {
  return name == "P6.2" ? ReportResidency(result) : RaceBesideAnEncoder(result);
}

}  // namespace Veldrift
