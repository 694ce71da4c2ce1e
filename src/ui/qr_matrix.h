// What is drawn into a QR code's modules, step by step, and how ill the result looks.
#pragma once

#include <array>
#include <cstdint>
#include <span>

#include "ui/qr_code.h"

namespace Veldrift {

inline constexpr int kQrMasks = 8;

// An empty code of that version: finders with separators, timing, alignment, the dark module; the
// areas of the format and version information are light and taken.
QrCode DrawFunctionPatterns(int version);

// The codewords' bits into the modules that are free, in the standard's zigzag from the right edge,
// the most significant bit first. What is left over stays light.
void PlaceCodewords(QrCode& code, std::span<const uint8_t> codewords);

// Inverts the free modules under the mask, 0 to 7; a second time takes it off again.
void ToggleMask(QrCode& code, int mask);

// Both copies of what tells the level, H, and the mask.
void DrawFormatInformation(QrCode& code, int mask);

// Both copies of what tells the version; nothing below version 7.
void DrawVersionInformation(QrCode& code);

// How ill a masked code looks, by two of the standard's rules only: what resembles a finder and how
// dark the whole is doesn't count.
// The sum of: for each run of equal modules in a row or a column 3 at length 5 and 1 for each
// module more; for each square of 2 by 2 equal modules 3, overlapping ones included.
int QrPenalty(const QrCode& code);

// The index of the smallest penalty, the lowest one on a tie.
int LowestPenaltyMask(const std::array<int, kQrMasks>& penalties);

}  // namespace Veldrift
