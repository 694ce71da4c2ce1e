// Which codec an access unit in Annex B form is of, by the parameter sets in it. No decoding.
#pragma once

#include <cstddef>
#include <span>

namespace Veldrift {

enum class StreamCodec { None, H264, Hevc };

// "H.264", "HEVC" or "none".
const char* NameOf(StreamCodec codec);

// Where the next start code (00 00 01) begins, at or behind `from`; the end if there is none.
size_t NextStartCode(std::span<const std::byte> bytes, size_t from);

// The next unit without its start code, and `rest` behind it; empty if there is none.
std::span<const std::byte> TakeUnit(std::span<const std::byte>& rest);

// Whose parameter set this unit is; `unit` isn't empty and begins behind its start code.
StreamCodec ParameterSetOf(std::span<const std::byte> unit);

// Whose parameter sets stand in it; None if there are none, as in all but key frames.
StreamCodec CodecOf(std::span<const std::byte> accessUnit);

// The first sequence parameter set in it, in which the pictures' size stands, without its start
// code; empty if there is none.
std::span<const std::byte> SequenceSetOf(std::span<const std::byte> accessUnit);

}  // namespace Veldrift
