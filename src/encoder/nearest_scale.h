// Scaling of a frame whose size differs from the configured one.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Veldrift {

// Nearest-neighbour sampling of BGRA at pixel centres. `destination` is packed and holds
// destinationWidth x destinationHeight x 4 bytes; source rows are `sourceStride` bytes apart.
void ScaleNearest(const uint8_t* source, size_t sourceStride, int sourceWidth, int sourceHeight,
                  uint8_t* destination, int destinationWidth, int destinationHeight);

}  // namespace Veldrift
