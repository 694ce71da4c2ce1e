// What stands in an encoder's output: NAL units behind lengths or start codes, parameter sets, and
// the test for a key frame.
//
// `codec` is a codec id, and two tests of it stand side by side: the search for a key frame takes
// every value but 0 for H.264, while parameter sets are H.264's for 1 alone. With the two ids that
// exist that is the same.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace Veldrift {

using ByteSpan = std::span<const uint8_t>;

// The data begin with 00 00 01 or 00 00 00 01.
bool StartsWithStartCode(ByteSpan data);

// Appends data that already are Annex B as they stand, and length-prefixed NAL units (four bytes,
// big-endian) each behind a start code. What follows a length of 0 or one that runs past the end
// is lost. 00 00 00 01 is a start code; 00 00 01 is one too, unless it is the head of a length:
// then lengths tile the data to the last byte.
void AppendAsAnnexB(ByteSpan data, std::vector<uint8_t>& out);

// Any NAL unit of the access unit is a picture that decoding can start at: IDR in H.264, IRAP (BLA,
// IDR, CRA) in HEVC.
bool ContainsKeyFrame(ByteSpan annexB, int32_t codec);

// The parameter sets that an encoder gives beside the stream, in Annex B and in their order: an
// avcC (H.264) or hvcC (HEVC) record, which begins with its version, never 0, or the units behind
// their start codes, which stand as they are. A record that ends too early gives those before the
// fault.
std::vector<uint8_t> ParameterSetsFromHeader(ByteSpan header, int32_t codec);

// The parameter sets that stand in an access unit, each behind a start code.
std::vector<uint8_t> FindParameterSets(ByteSpan annexB, int32_t codec);

}  // namespace Veldrift
