// Transforms that cost as little as any can: every frame is answered with the same unit.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "encoder/transform_platform.h"

namespace Veldrift {

// Makes platforms with one transform. An asynchronous one tells its events on a thread of its own,
// one behind the other. Units are `unitBytes` long, H.264, and their bytes are made once.
std::function<std::unique_ptr<TransformPlatform>()> FreePlatforms(bool asynchronous,
                                                                  size_t unitBytes);

}  // namespace Veldrift
