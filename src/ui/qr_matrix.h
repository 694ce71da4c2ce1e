// What is drawn into a QR code's modules, step by step.
#pragma once

#include <cstdint>
#include <span>

#include "ui/qr_code.h"

namespace Veldrift {

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

}  // namespace Veldrift
