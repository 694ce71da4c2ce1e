#include "encoder/annex_b.h"

#include <array>
#include <cstring>
#include <optional>

#include "encoder/hardware_encoder.h"

namespace Veldrift {
namespace {

constexpr std::array<uint8_t, 4> kStartCode = {0, 0, 0, 1};

constexpr uint8_t kAvcIdrSlice = 5;
constexpr uint8_t kAvcSps = 7;
constexpr uint8_t kAvcPps = 8;
constexpr uint8_t kHevcVps = 32;
constexpr uint8_t kHevcPps = 34;

void AppendUnit(ByteSpan unit, std::vector<uint8_t>& out) {
  out.insert(out.end(), kStartCode.begin(), kStartCode.end());
  out.insert(out.end(), unit.begin(), unit.end());
}

// Where a start code begins and where the NAL unit behind it does. The first zero of a code of four
// bytes belongs to the code.
struct StartCode {
  size_t begin;
  size_t unit;
};

// The first start code at or behind `from`. An access unit is full of zeros and of ones, but most
// of it is neither: the library's search is many times as fast as a look at every byte.
std::optional<StartCode> FindStartCode(ByteSpan data, size_t from) {
  for (size_t at = from + 2; at < data.size(); ++at) {
    const void* one = std::memchr(data.data() + at, 1, data.size() - at);
    if (one == nullptr) break;
    at = static_cast<size_t>(static_cast<const uint8_t*>(one) - data.data());
    if (data[at - 1] != 0 || data[at - 2] != 0) continue;
    const bool fourBytes = at >= from + 3 && data[at - 3] == 0;
    return StartCode{at - (fourBytes ? 3 : 2), at + 1};
  }
  return std::nullopt;
}

uint32_t BigEndianLength(ByteSpan data) {
  return static_cast<uint32_t>(data[0]) << 24 | static_cast<uint32_t>(data[1]) << 16 |
         static_cast<uint32_t>(data[2]) << 8 | data[3];
}

// Takes the first length-prefixed unit off the data; false if there is none that is whole.
bool TakePrefixedUnit(ByteSpan& data, ByteSpan& unit) {
  if (data.size() < 4) return false;
  const uint32_t length = BigEndianLength(data);
  if (length == 0 || length > data.size() - 4) return false;
  unit = data.subspan(4, length);
  data = data.subspan(size_t{4} + length);
  return true;
}

// 00 00 01 can also be the head of the length of a unit of 256 to 511 bytes: it is, if lengths tile
// the data to the last byte.
bool IsAnnexB(ByteSpan data) {
  if (!StartsWithStartCode(data)) return false;
  if (data[2] == 0) return true;
  ByteSpan unit;
  while (TakePrefixedUnit(data, unit)) {
  }
  return !data.empty();
}

bool IsKeyUnit(uint8_t header, int32_t codec) {
  if (codec != kCodecHevc) return (header & 0x1F) == kAvcIdrSlice;
  return (header & 0x60) != 0 && (header & 0x7E) < 43;  // types 16 to 21
}

bool IsParameterSet(uint8_t header, int32_t codec) {
  if (codec == kCodecH264) return (header & 0x1F) == kAvcSps || (header & 0x1F) == kAvcPps;
  const int type = (header >> 1) & 0x3F;
  return type >= kHevcVps && type <= kHevcPps;
}

// A slice: every parameter set of an access unit stands in front of its first.
bool IsSlice(uint8_t header, int32_t codec) {
  if (codec == kCodecH264) return (header & 0x1F) >= 1 && (header & 0x1F) <= kAvcIdrSlice;
  return ((header >> 1) & 0x3F) < kHevcVps;
}

// Reads big-endian fields until one would run past the end.
class RecordReader {
 public:
  RecordReader(ByteSpan data, size_t offset) : rest_(data.subspan(offset)) {}

  bool Take(size_t count, ByteSpan& bytes) {
    if (rest_.size() < count) return false;
    bytes = rest_.first(count);
    rest_ = rest_.subspan(count);
    return true;
  }
  bool TakeByte(size_t& value) {
    ByteSpan bytes;
    if (!Take(1, bytes)) return false;
    value = bytes[0];
    return true;
  }
  bool TakeWord(size_t& value) {
    ByteSpan bytes;
    if (!Take(2, bytes)) return false;
    value = static_cast<size_t>(bytes[0] << 8 | bytes[1]);
    return true;
  }
  bool TakeUnits(size_t count, std::vector<uint8_t>& out) {
    for (; count > 0; --count) {
      size_t length = 0;
      ByteSpan unit;
      if (!TakeWord(length) || !Take(length, unit)) return false;
      AppendUnit(unit, out);
    }
    return true;
  }

 private:
  ByteSpan rest_;
};

std::vector<uint8_t> FromAvcRecord(ByteSpan record) {
  constexpr size_t kMinimum = 7;
  constexpr size_t kCountOffset = 5;
  std::vector<uint8_t> sets;
  if (record.size() < kMinimum) return sets;
  RecordReader reader(record, kCountOffset + 1);
  size_t pictureSets = 0;
  if (reader.TakeUnits(record[kCountOffset] & 31, sets) && reader.TakeByte(pictureSets)) {
    reader.TakeUnits(pictureSets, sets);
  }
  return sets;
}

std::vector<uint8_t> FromHevcRecord(ByteSpan record) {
  constexpr size_t kMinimum = 23;
  constexpr size_t kCountOffset = 22;
  std::vector<uint8_t> sets;
  if (record.size() < kMinimum) return sets;
  RecordReader reader(record, kCountOffset + 1);
  for (size_t array = 0; array < record[kCountOffset]; ++array) {
    size_t type = 0;
    size_t count = 0;
    if (!reader.TakeByte(type) || !reader.TakeWord(count)) break;
    if (!reader.TakeUnits(count, sets)) break;
  }
  return sets;
}

}  // namespace

bool StartsWithStartCode(ByteSpan data) {
  if (data.size() < 3 || data[0] != 0 || data[1] != 0) return false;
  return data[2] == 1 || (data.size() > 3 && data[2] == 0 && data[3] == 1);
}

void AppendAsAnnexB(ByteSpan data, std::vector<uint8_t>& out) {
  if (IsAnnexB(data)) {
    out.insert(out.end(), data.begin(), data.end());
    return;
  }
  ByteSpan unit;
  while (TakePrefixedUnit(data, unit)) AppendUnit(unit, out);
}

bool ContainsKeyFrame(ByteSpan annexB, int32_t codec) {
  size_t at = 0;
  while (const std::optional<StartCode> code = FindStartCode(annexB, at)) {
    if (code->unit < annexB.size() && IsKeyUnit(annexB[code->unit], codec)) return true;
    at = code->unit;
  }
  return false;
}

std::vector<uint8_t> ParameterSetsFromHeader(ByteSpan header, int32_t codec) {
  if (StartsWithStartCode(header)) return {header.begin(), header.end()};
  return codec == kCodecH264 ? FromAvcRecord(header) : FromHevcRecord(header);
}

std::vector<uint8_t> FindParameterSets(ByteSpan annexB, int32_t codec) {
  std::vector<uint8_t> sets;
  std::optional<StartCode> code = FindStartCode(annexB, 0);
  while (code && code->unit < annexB.size()) {
    const uint8_t header = annexB[code->unit];
    if (IsSlice(header, codec)) break;
    const std::optional<StartCode> next = FindStartCode(annexB, code->unit);
    const size_t end = next ? next->begin : annexB.size();
    if (IsParameterSet(header, codec)) {
      AppendUnit(annexB.subspan(code->unit, end - code->unit), sets);
    }
    code = next;
  }
  return sets;
}

}  // namespace Veldrift
