#include "ui/qr_penalty.h"

#include <algorithm>

namespace Veldrift {
namespace {

constexpr int kShortestRun = 5;
constexpr int kRunPenalty = 3;
constexpr int kSquarePenalty = 3;

// The runs along `count` modules, `step` bytes apart.
int RunPenalty(const uint8_t* module, int count, int step) {
  int penalty = 0;
  int length = 1;
  for (int i = 1; i < count; ++i, module += step) {
    length = module[step] == module[0] ? length + 1 : 1;
    if (length == kShortestRun) penalty += kRunPenalty;
    if (length > kShortestRun) ++penalty;
  }
  return penalty;
}

int SquarePenalty(const uint8_t* row, int size) {
  int squares = 0;
  for (int i = 0; i + 1 < size; ++i) {
    const int dark = row[i] + row[i + 1] + row[i + size] + row[i + size + 1];
    squares += dark % 4 == 0 ? 1 : 0;
  }
  return squares * kSquarePenalty;
}

}  // namespace

int QrPenalty(const QrCode& code) {
  int penalty = 0;
  for (int i = 0; i < code.size; ++i) {
    const uint8_t* const row = &code.modules[code.Index(0, i)];
    penalty += RunPenalty(row, code.size, 1);
    penalty += RunPenalty(&code.modules[code.Index(i, 0)], code.size, code.size);
    if (i + 1 < code.size) penalty += SquarePenalty(row, code.size);
  }
  return penalty;
}

int LowestPenaltyMask(const std::array<int, kQrMasks>& penalties) {
  return int(std::min_element(penalties.begin(), penalties.end()) - penalties.begin());
}

}  // namespace Veldrift
