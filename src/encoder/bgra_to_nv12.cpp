#include "encoder/bgra_to_nv12.h"

#include "encoder/bgra_to_nv12_rows.h"
#include "encoder/bt709.h"

namespace Veldrift {
namespace {

constexpr int kPixelBytes = 4;

uint8_t Luma(const uint8_t* pixel) {
  using namespace bt709;
  return static_cast<uint8_t>(((kYB * pixel[0] + kYG * pixel[1] + kYR * pixel[2] + kRound) >> 8) +
                              kYOff);
}

void PutChroma(int b, int g, int r, uint8_t* pair) {
  using namespace bt709;
  pair[0] = static_cast<uint8_t>(((kCbB * b + kCbG * g + kCbR * r + kRound) >> 8) + kCOff);
  pair[1] = static_cast<uint8_t>(((kCrR * r + kCrG * g + kCrB * b + kRound) >> 8) + kCOff);
}

void LumaColumns(const uint8_t* row, uint8_t* luma, int from, int width) {
  for (int x = from; x < width; ++x) luma[x] = Luma(row + x * kPixelBytes);
}

// `from` is even.
void ChromaColumns(const Nv12RowPair& rows, int from, int width) {
  for (int x = from; x + 1 < width; x += 2) {
    const uint8_t* top = rows.top + x * kPixelBytes;
    const uint8_t* bottom = rows.bottom + x * kPixelBytes;
    const auto mean = [top, bottom](int channel) {
      return (top[channel] + top[channel + kPixelBytes] + bottom[channel] +
              bottom[channel + kPixelBytes]) >>
             2;
    };
    PutChroma(mean(0), mean(1), mean(2), rows.chroma + x);
  }
}

int NoColumns(const Nv12RowPair&, int) { return 0; }

using RowPairStep = int (*)(const Nv12RowPair&, int);

RowPairStep StepOf(ConversionKind kind) {
  switch (kind) {
    case ConversionKind::Ssse3:
      return ConvertRowPairSsse3;
    case ConversionKind::Avx2:
      return ConvertRowPairAvx2;
    default:
      return NoColumns;
  }
}

ConversionKind BestConversion() {
  static const ConversionKind kBest =
      ConversionSupported(ConversionKind::Avx2)
          ? ConversionKind::Avx2
          : (ConversionSupported(ConversionKind::Ssse3) ? ConversionKind::Ssse3
                                                        : ConversionKind::Plain);
  return kBest;
}

}  // namespace

bool ConversionSupported(ConversionKind kind) {
  switch (kind) {
    case ConversionKind::Ssse3:
      return __builtin_cpu_supports("ssse3");
    case ConversionKind::Avx2:
      return __builtin_cpu_supports("avx2");
    default:
      return true;
  }
}

void ConvertBgraToNv12With(ConversionKind kind, const uint8_t* bgra, ptrdiff_t strideBytes,
                           uint8_t* luma, uint8_t* chroma, int width, int height) {
  const RowPairStep step = StepOf(kind);
  int y = 0;
  for (; y + 1 < height; y += 2) {
    const uint8_t* top = bgra + y * strideBytes;
    uint8_t* lumaTop = luma + static_cast<ptrdiff_t>(y) * width;
    const Nv12RowPair rows{top, top + strideBytes, lumaTop, lumaTop + width,
                           chroma + static_cast<ptrdiff_t>(y / 2) * width};
    const int done = step(rows, width);
    LumaColumns(rows.top, rows.lumaTop, done, width);
    LumaColumns(rows.bottom, rows.lumaBottom, done, width);
    ChromaColumns(rows, done, width);
  }
  if (y < height) {
    LumaColumns(bgra + y * strideBytes, luma + static_cast<ptrdiff_t>(y) * width, 0, width);
  }
}

void ConvertBgraToNv12Scalar(const uint8_t* bgra, ptrdiff_t strideBytes, uint8_t* luma,
                             uint8_t* chroma, int width, int height) {
  ConvertBgraToNv12With(ConversionKind::Plain, bgra, strideBytes, luma, chroma, width, height);
}

void ConvertBgraToNv12(const uint8_t* bgra, ptrdiff_t strideBytes, uint8_t* luma, uint8_t* chroma,
                       int width, int height) {
  ConvertBgraToNv12With(BestConversion(), bgra, strideBytes, luma, chroma, width, height);
}

}  // namespace Veldrift
