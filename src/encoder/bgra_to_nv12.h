// The colour conversion of the whole system: BGRA to NV12, BT.709, limited range, in fixed point.
// The plain loop defines the numbers, and every other way gives the same bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Veldrift {

// Converts `width` x `height` pixels whose rows are `strideBytes` apart. `luma` is packed, width x
// height bytes; `chroma` has height / 2 rows of `width` bytes, each with width / 2 pairs of Cb and
// Cr, the mean of 2 x 2 pixels. An odd last row or column gets no chroma. The planes and the frame
// don't overlap. Threads: any.
void ConvertBgraToNv12Scalar(const uint8_t* bgra, ptrdiff_t strideBytes, uint8_t* luma,
                             uint8_t* chroma, int width, int height);

// The same bytes by the fastest way that this processor has.
void ConvertBgraToNv12(const uint8_t* bgra, ptrdiff_t strideBytes, uint8_t* luma, uint8_t* chroma,
                       int width, int height);

enum class ConversionKind { Plain, Ssse3, Avx2 };

bool ConversionSupported(ConversionKind kind);

// The same bytes by one given way, which must be supported: for tests and benchmarks.
void ConvertBgraToNv12With(ConversionKind kind, const uint8_t* bgra, ptrdiff_t strideBytes,
                           uint8_t* luma, uint8_t* chroma, int width, int height);

}  // namespace Veldrift
