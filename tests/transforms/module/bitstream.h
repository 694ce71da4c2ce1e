// NAL units: taken apart, and put together in the forms in which encoders hand them out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace Veldrift::Transforms {

using Bytes = std::vector<uint8_t>;

// The units between the start codes, without them.
std::vector<Bytes> SplitUnits(std::span<const uint8_t> annexB);

// Each behind 00 00 00 01.
Bytes JoinAnnexB(const std::vector<Bytes>& units);

// Each behind its length in four bytes, the highest first.
Bytes JoinLengths(const std::vector<Bytes>& units);

// The parameter sets as an avcC or hvcC record.
Bytes MakeRecord(const std::vector<Bytes>& sets, bool hevc);

// A unit of `size` bytes that a decoder passes over (user data), one less where its own length
// can't be written so; `size` at least 32.
Bytes MakeUserData(size_t size, bool hevc);

}  // namespace Veldrift::Transforms
