// From a text to the codewords of a QR code, in the order in which they are placed.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace Veldrift {

// The data codewords of all blocks interleaved, and behind them the error correction codewords
// likewise. `bytes` must fit `version`.
std::vector<uint8_t> MakeQrCodewords(std::string_view bytes, int version);

// The data codewords alone, before they are split into blocks: header, bytes, terminator, padding.
std::vector<uint8_t> MakeQrData(std::string_view bytes, int version);

}  // namespace Veldrift
