#include "ui/qr_penalty.h"

#include <algorithm>

namespace Veldrift {
namespace {

constexpr int kShortestRun = 5;
constexpr int kRunPenalty = 3;
constexpr int kSquarePenalty = 3;

// 1 if as many modules from `first` on as the shortest run has, `step` bytes apart, are equal.
int IsRun(const uint8_t* first, int step) {
  const int dark = first[0] + first[step] + first[2 * step] + first[3 * step] + first[4 * step];
  return dark % kShortestRun == 0 ? 1 : 0;
}

// A run is found at each place where it is still long enough. Each counts once, which makes up for
// the modules behind the fifth, and the run's beginning counts for the rest.
int BeginningPenalty(const uint8_t* first, int step) { return IsRun(first, step) * kRunPenalty; }
int LaterPenalty(const uint8_t* first, int step) {
  const int begins = first[0] ^ first[-step];
  return IsRun(first, step) * (1 + begins * (kRunPenalty - 1));
}

int RowPenalty(const uint8_t* row, int size) {
  int penalty = BeginningPenalty(row, 1);
  for (int i = 1; i + kShortestRun <= size; ++i) penalty += LaterPenalty(row + i, 1);
  return penalty;
}

// Of the runs down the columns what lies at this row, which has enough rows below it.
int ColumnsPenalty(const uint8_t* row, int size, bool isFirst) {
  int penalty = 0;
  if (isFirst) {
    for (int i = 0; i < size; ++i) penalty += BeginningPenalty(row + i, size);
  } else {
    for (int i = 0; i < size; ++i) penalty += LaterPenalty(row + i, size);
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
    if (code.size >= kShortestRun) penalty += RowPenalty(row, code.size);
    if (i + kShortestRun <= code.size) penalty += ColumnsPenalty(row, code.size, i == 0);
    if (i + 1 < code.size) penalty += SquarePenalty(row, code.size);
  }
  return penalty;
}

int LowestPenaltyMask(const std::array<int, kQrMasks>& penalties) {
  return int(std::min_element(penalties.begin(), penalties.end()) - penalties.begin());
}

}  // namespace Veldrift
