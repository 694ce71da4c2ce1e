// A small QR encoder (ISO/IEC 18004, model 2): error correction level H, byte mode, one segment;
// and the code as pixels. qr_codewords.h makes codewords of the bytes, qr_matrix.h modules of
// those.
//
// Threads: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace Veldrift {

// Plain data.
struct QrCode {
  int32_t size = 0;                 // modules per side, 17 + 4 * version; 0: no code was made
  int32_t version = 0;              // 1 to 40
  std::vector<uint8_t> modules;     // size * size, row by row: 1 is dark, 0 is light
  std::vector<uint8_t> isFunction;  // the same shape: 1 takes neither data nor mask

  size_t Index(int column, int row) const { return size_t(row) * size_t(size) + size_t(column); }
};

// The code of the smallest version that takes `bytes`, any bytes at all, with 7 bits to spare: up
// to 1272 bytes at version 40. `size` is 0 if there are more.
QrCode EncodeQrText(std::string_view bytes);

// ---- As pixels, for whatever shows it -----------------------------------------------------------

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
