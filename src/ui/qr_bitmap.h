// A QR code as pixels, for whatever shows it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "ui/qr_code.h"

namespace Veldrift {

// A square picture: `side` rows of `side` pixels, from the top down, without padding. A pixel is
// 0xAARRGGBB as a number, hence B, G, R, A in memory.
struct QrBitmap {
  int32_t side = 0;
  std::vector<uint32_t> pixels;
};

inline constexpr uint32_t kQrWhite = 0xFFFFFFFF;
inline constexpr uint32_t kQrBlack = 0xFF000000;

// Black on white, as large as whole pixels a module allow, with at least two modules of quiet zone
// on each side, centred; the odd pixel goes to the right and the bottom. Nothing for an empty code
// and where a module would be smaller than a pixel.
std::optional<QrBitmap> RenderQrToBitmap(const QrCode& qrCode, int32_t sizeInPixels);

}  // namespace Veldrift
