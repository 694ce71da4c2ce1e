// A small QR encoder (ISO/IEC 18004, model 2): error correction level H, byte mode, one segment.
// How it works is spread over qr_tables.h (what the standard prints), qr_codewords.h (bytes to
// codewords), qr_matrix.h (codewords to modules) and qr_penalty.h (which mask).
//
// Threads: any thread.
#pragma once

#include <cstddef>
#include <cstdint>
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

}  // namespace Veldrift
