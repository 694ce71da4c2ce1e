// The colour conversion's numbers: BT.709, limited range, in fixed point. Constants and nothing
// else, so that files compiled for an instruction set of their own can share them.
#pragma once

// Weights in 1/256, and the offsets of limited range.
namespace Veldrift::bt709 {

inline constexpr int kYR = 47;
inline constexpr int kYG = 157;
inline constexpr int kYB = 16;
inline constexpr int kCbR = -26;
inline constexpr int kCbG = -87;
inline constexpr int kCbB = 112;
inline constexpr int kCrR = 112;
inline constexpr int kCrG = -102;
inline constexpr int kCrB = -10;
inline constexpr int kYOff = 16;
inline constexpr int kCOff = 128;
inline constexpr int kRound = 128;

}  // namespace Veldrift::bt709
