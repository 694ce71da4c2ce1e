// The colour conversion as a compute shader: the same bytes as ConvertBgraToNv12Scalar for a frame
// of even sides.
#pragma once

#include <string_view>

namespace Veldrift {

// The source, for Direct3D's compiler: entry "main", target cs_5_0. The frame is t0; the two planes
// are u0 and u1. A thread converts a block of 2 x 2 pixels, a group 8 x 8 blocks.
extern const std::string_view kBgraToNv12Shader;

// Pixels of a frame's side that a group of the shader's converts.
inline constexpr int kShaderGroupPixels = 16;

}  // namespace Veldrift
