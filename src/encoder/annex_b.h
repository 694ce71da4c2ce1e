// What an encoder puts out, turned into access units in Annex B: start codes, parameter sets in
// front of every key frame, and the test for a key frame. `codec` is a codec id.
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
// is lost.
void AppendAsAnnexB(ByteSpan data, std::vector<uint8_t>& out);

// Any NAL unit of the access unit is a picture that decoding can start at: IDR in H.264, IRAP (BLA,
// IDR, CRA) in HEVC.
bool ContainsKeyFrame(ByteSpan annexB, int32_t codec);

// Assembles one access unit in `out`: `data` as Annex B, with `parameterSets` in front of a key
// frame. True for a key frame: one the encoder marked as such, or one that the scan finds.
bool AssembleAccessUnit(ByteSpan data, ByteSpan parameterSets, int32_t codec, bool marked,
                        std::vector<uint8_t>& out);

// The parameter sets of an avcC (H.264) or hvcC (HEVC) record in Annex B, in the record's order.
// A record that ends too early gives those before the fault.
std::vector<uint8_t> ParameterSetsFromRecord(ByteSpan record, int32_t codec);

// The parameter sets that stand in an access unit, each behind a start code.
std::vector<uint8_t> FindParameterSets(ByteSpan annexB, int32_t codec);

}  // namespace Veldrift
