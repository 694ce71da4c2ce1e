// The product's encoder over Media Foundation, as these tests make it.
#pragma once

#include <memory>
#include <string>

#include "encoder/encoder_shell.h"
#include "encoder/mf/mf_platform.h"
#include "encoder/transform_backend.h"

namespace Veldrift {

// As the product's factories make it, but that asynchronous encoders are allowed by the test and
// not by the installation.
inline std::unique_ptr<IHardwareEncoder> MakeTestedEncoder(const std::string& engineId = "auto",
                                                           bool allowAsynchronous = true) {
  const auto makeBackend = [allowAsynchronous]() -> std::unique_ptr<EncoderBackend> {
    return std::make_unique<TransformBackend>(TransformBackend::Environment{
        std::make_unique<MfPlatform>(), [allowAsynchronous] { return allowAsynchronous; },
        SystemClock()});
  };
  return std::make_unique<EncoderShell>(makeBackend, engineId);
}

}  // namespace Veldrift
