#include "ui/qr_code.h"

#include <algorithm>
#include <array>

#include "ui/qr_codewords.h"
#include "ui/qr_matrix.h"

namespace Veldrift {
namespace {

// Of the eight masks that with the smallest penalty, the lowest on a tie. `code` comes out as it
// went in, but for the format information.
int ChooseMask(QrCode& code) {
  std::array<int, kQrMasks> penalties{};
  for (int mask = 0; mask < kQrMasks; ++mask) {
    ToggleMask(code, mask);
    DrawFormatInformation(code, mask);
    penalties[size_t(mask)] = QrPenalty(code);
    ToggleMask(code, mask);
  }
  return LowestPenaltyMask(penalties);
}

constexpr int32_t kQuietModules = 2;  // on each side; the standard asks for four

void FillSquare(QrBitmap& bitmap, int32_t left, int32_t top, int32_t scale) {
  for (int32_t y = top; y < top + scale; ++y) {
    const auto row = bitmap.pixels.begin() + (int64_t(y) * bitmap.side + left);
    std::fill_n(row, scale, kQrBlack);
  }
}

}  // namespace

QrCode EncodeQrText(std::string_view bytes) {
  const std::optional<int> version = SmallestQrVersion(bytes.size());
  if (!version) return {};
  QrCode code = DrawFunctionPatterns(*version);
  PlaceCodewords(code, MakeQrCodewords(bytes, *version));
  const int mask = ChooseMask(code);
  ToggleMask(code, mask);
  DrawFormatInformation(code, mask);
  // Last, so that it plays no part in the penalties.
  DrawVersionInformation(code);
  return code;
}

std::optional<QrBitmap> RenderQrToBitmap(const QrCode& qrCode, int32_t sizeInPixels) {
  if (qrCode.size < 1) return std::nullopt;
  const int32_t modules = qrCode.size + 2 * kQuietModules;
  const int32_t scale = sizeInPixels / modules;
  if (scale < 1) return std::nullopt;
  const int32_t corner = sizeInPixels % modules / 2 + kQuietModules * scale;
  QrBitmap bitmap{sizeInPixels,
                  std::vector<uint32_t>(size_t(sizeInPixels) * size_t(sizeInPixels), kQrWhite)};
  for (int32_t row = 0; row < qrCode.size; ++row) {
    for (int32_t column = 0; column < qrCode.size; ++column) {
      if (qrCode.modules[qrCode.Index(column, row)] == 0) continue;
      FillSquare(bitmap, corner + column * scale, corner + row * scale, scale);
    }
  }
  return bitmap;
}

}  // namespace Veldrift
