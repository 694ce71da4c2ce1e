// The encoder transforms that this Windows offers.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "encoder/engine_catalogue.h"
#include "encoder/mf/com_scope.h"
#include "encoder/mf/mf_libraries.h"
#include "encoder/transform_platform.h"

namespace Veldrift {

// Those of the class that make the codec, in the system's order. `manager` is what they are offered
// when they are made, and may be null. Empty if the system can't tell.
std::vector<std::unique_ptr<TransformCandidate>> FindCandidates(
    const MediaApi& media, TransformClass kind, int32_t codec,
    const ComPtr<IMFDXGIDeviceManager>& manager);

// The families of hardware encoders for either codec, synchronous or not.
HardwareSeen FindHardware(const MediaApi& media);

}  // namespace Veldrift
