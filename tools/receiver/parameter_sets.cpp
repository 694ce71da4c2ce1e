#include "tools/receiver/parameter_sets.h"

namespace Veldrift {

const char* NameOf(StreamCodec codec) {
  if (codec == StreamCodec::None) return "none";
  return codec == StreamCodec::H264 ? "H.264" : "HEVC";
}

size_t NextStartCode(std::span<const std::byte> bytes, size_t from) {
  for (size_t i = from; i + 3 <= bytes.size(); ++i) {
    if (bytes[i] == std::byte{0} && bytes[i + 1] == std::byte{0} && bytes[i + 2] == std::byte{1}) {
      return i;
    }
  }
  return bytes.size();
}

std::span<const std::byte> TakeUnit(std::span<const std::byte>& rest) {
  for (size_t at = NextStartCode(rest, 0); at + 3 < rest.size();) {
    const size_t from = at + 3;
    at = NextStartCode(rest, from);
    size_t end = at;
    while (end > from && rest[end - 1] == std::byte{0}) --end;  // of a four-byte start code
    if (end == from) continue;
    const auto unit = rest.subspan(from, end - from);
    rest = rest.subspan(at);
    return unit;
  }
  rest = {};
  return {};
}

// H.264's sequence parameter set is type 7 and its picture parameter set type 8; HEVC's three sets
// are types 32 to 34 in layer 0. No first byte means both.
StreamCodec ParameterSetOf(std::span<const std::byte> unit) {
  const auto head = std::to_integer<unsigned>(unit[0]);
  if ((head & 0x80) != 0) return StreamCodec::None;
  if ((head & 0x1F) == 7 || (head & 0x1F) == 8) return StreamCodec::H264;
  const unsigned type = head >> 1;
  return type >= 32 && type <= 34 ? StreamCodec::Hevc : StreamCodec::None;
}

StreamCodec CodecOf(std::span<const std::byte> accessUnit) {
  size_t at = NextStartCode(accessUnit, 0);
  for (; at + 3 < accessUnit.size(); at = NextStartCode(accessUnit, at + 3)) {
    const StreamCodec codec = ParameterSetOf(accessUnit.subspan(at + 3));
    if (codec != StreamCodec::None) return codec;
  }
  return StreamCodec::None;
}

// Type 7 in H.264, 33 in HEVC.
std::span<const std::byte> SequenceSetOf(std::span<const std::byte> accessUnit) {
  for (auto unit = TakeUnit(accessUnit); !unit.empty(); unit = TakeUnit(accessUnit)) {
    const auto head = std::to_integer<unsigned>(unit[0]);
    const StreamCodec codec = ParameterSetOf(unit);
    if ((codec == StreamCodec::H264 && (head & 0x1F) == 7) ||
        (codec == StreamCodec::Hevc && head >> 1 == 33)) {
      return unit;
    }
  }
  return {};
}

}  // namespace Veldrift
