#include "ui/qr_code.h"

#include <array>
#include <optional>

#include "ui/qr_codewords.h"
#include "ui/qr_matrix.h"
#include "ui/qr_penalty.h"
#include "ui/qr_tables.h"

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

}  // namespace Veldrift
