#include "encoder/annex_b.h"

#include <array>

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

// The length of a start code at `at`, 0 if there is none. At least three bytes follow `at`.
size_t StartCodeAt(ByteSpan data, size_t at) {
  if (data[at] != 0 || data[at + 1] != 0) return 0;
  if (at + 3 >= data.size() || data[at + 2] != 0) return data[at + 2] == 1 ? 3 : 0;
  return data[at + 3] == 1 ? 4 : 0;
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

// Where the NAL unit that begins at `from` ends: at the next start code or the end of the data.
size_t UnitEnd(ByteSpan data, size_t from) {
  for (size_t at = from; at + 3 <= data.size(); ++at) {
    if (StartCodeAt(data, at) != 0) return at;
  }
  return data.size();
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

bool StartsWithStartCode(ByteSpan data) { return data.size() >= 3 && StartCodeAt(data, 0) != 0; }

void AppendAsAnnexB(ByteSpan data, std::vector<uint8_t>& out) {
  if (StartsWithStartCode(data)) {
    out.insert(out.end(), data.begin(), data.end());
    return;
  }
  while (data.size() >= 4) {
    const uint32_t length = static_cast<uint32_t>(data[0]) << 24 |
                            static_cast<uint32_t>(data[1]) << 16 |
                            static_cast<uint32_t>(data[2]) << 8 | data[3];
    if (length == 0 || length > data.size() - 4) return;
    AppendUnit(data.subspan(4, length), out);
    data = data.subspan(size_t{4} + length);
  }
}

bool ContainsKeyFrame(ByteSpan annexB, int32_t codec) {
  if (annexB.size() < 4) return false;
  for (size_t at = 0; at + 3 < annexB.size();) {
    const size_t code = StartCodeAt(annexB, at);
    const size_t header = at + code;
    if (code != 0 && header < annexB.size() && IsKeyUnit(annexB[header], codec)) return true;
    at += code != 0 ? code : 1;
  }
  return false;
}

bool AssembleAccessUnit(ByteSpan data, ByteSpan parameterSets, int32_t codec, bool marked,
                        std::vector<uint8_t>& out) {
  out.clear();
  out.reserve(data.size() + parameterSets.size());
  AppendAsAnnexB(data, out);
  const bool keyFrame = ContainsKeyFrame(out, codec) || marked;
  if (keyFrame) out.insert(out.begin(), parameterSets.begin(), parameterSets.end());
  return keyFrame;
}

std::vector<uint8_t> ParameterSetsFromRecord(ByteSpan record, int32_t codec) {
  return codec == kCodecH264 ? FromAvcRecord(record) : FromHevcRecord(record);
}

std::vector<uint8_t> FindParameterSets(ByteSpan annexB, int32_t codec) {
  std::vector<uint8_t> sets;
  for (size_t at = 0; at + 3 < annexB.size();) {
    const size_t code = StartCodeAt(annexB, at);
    const size_t begin = at + (code != 0 ? code : 1);
    at = begin;
    if (code == 0 || begin >= annexB.size()) continue;
    if (IsSlice(annexB[begin], codec)) break;
    if (!IsParameterSet(annexB[begin], codec)) continue;
    at = UnitEnd(annexB, begin);
    AppendUnit(annexB.subspan(begin, at - begin), sets);
  }
  return sets;
}

}  // namespace Veldrift
