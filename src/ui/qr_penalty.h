// How ill a masked QR code looks. Two of the standard's rules only: what resembles a finder and how
// dark the whole is doesn't count.
#pragma once

#include <array>

#include "ui/qr_code.h"
#include "ui/qr_tables.h"

namespace Veldrift {

// The sum of: for each run of equal modules in a row or a column 3 at length 5 and 1 for each
// module more; for each square of 2 by 2 equal modules 3, overlapping ones included.
int QrPenalty(const QrCode& code);

// The index of the smallest penalty, the lowest one on a tie.
int LowestPenaltyMask(const std::array<int, kQrMasks>& penalties);

}  // namespace Veldrift
