// The yardstick of the colour conversion: the plain loop as a compiler writes it without vectors.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Veldrift {

// The bytes that ConvertBgraToNv12 gives, for even sides.
void ConvertPlainly(const uint8_t* bgra, ptrdiff_t strideBytes, uint8_t* luma, uint8_t* chroma,
                    int width, int height);

}  // namespace Veldrift
