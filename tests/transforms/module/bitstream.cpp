#include "tests/transforms/module/bitstream.h"

namespace Veldrift::Transforms {
namespace {

constexpr uint8_t kStartCode[] = {0, 0, 0, 1};
constexpr unsigned kHevcVps = 32;
constexpr unsigned kHevcPps = 34;
constexpr unsigned kH264Sps = 7;
constexpr unsigned kH264Pps = 8;

unsigned HevcType(const Bytes& unit) { return (unit[0] >> 1) & 63U; }
unsigned H264Type(const Bytes& unit) { return unit[0] & 31U; }

void Append(Bytes& to, std::span<const uint8_t> bytes) {
  to.insert(to.end(), bytes.begin(), bytes.end());
}

void AppendNumber(Bytes& to, size_t value, int bytes) {
  for (int shift = (bytes - 1) * 8; shift >= 0; shift -= 8) {
    to.push_back(static_cast<uint8_t>(value >> shift));
  }
}

void AppendEntries(Bytes& to, const std::vector<Bytes>& units) {
  for (const Bytes& unit : units) {
    AppendNumber(to, unit.size(), 2);
    Append(to, unit);
  }
}

template <class Predicate>
std::vector<Bytes> Only(const std::vector<Bytes>& units, Predicate wanted) {
  std::vector<Bytes> found;
  for (const Bytes& unit : units) {
    if (wanted(unit)) found.push_back(unit);
  }
  return found;
}

Bytes MakeAvcRecord(const std::vector<Bytes>& sets) {
  const auto sps = Only(sets, [](const Bytes& unit) { return H264Type(unit) == kH264Sps; });
  const auto pps = Only(sets, [](const Bytes& unit) { return H264Type(unit) == kH264Pps; });
  if (sps.empty() || sps[0].size() < 4) return {};
  Bytes record = {1, sps[0][1], sps[0][2], sps[0][3], 0xff};
  record.push_back(static_cast<uint8_t>(0xe0U | sps.size()));
  AppendEntries(record, sps);
  record.push_back(static_cast<uint8_t>(pps.size()));
  AppendEntries(record, pps);
  return record;
}

// Of the fixed part only what a reader of the arrays needs: the version, the length of a length and
// the number of arrays.
Bytes MakeHevcRecord(const std::vector<Bytes>& sets) {
  constexpr size_t kFixedBytes = 23;
  constexpr size_t kLengthSizeAt = 21;
  constexpr size_t kArraysAt = 22;
  Bytes record(kFixedBytes);
  record[0] = 1;
  record[kLengthSizeAt] = 3;
  for (unsigned type = kHevcVps; type <= kHevcPps; ++type) {
    const auto units = Only(sets, [type](const Bytes& unit) { return HevcType(unit) == type; });
    if (units.empty()) continue;
    ++record[kArraysAt];
    record.push_back(static_cast<uint8_t>(0x80U | type));
    AppendNumber(record, units.size(), 2);
    AppendEntries(record, units);
  }
  return record;
}

// Where the next 00 00 01 begins, or the end.
size_t FindStart(std::span<const uint8_t> bytes, size_t from) {
  for (size_t at = from; at + 3 <= bytes.size(); ++at) {
    if (bytes[at] == 0 && bytes[at + 1] == 0 && bytes[at + 2] == 1) return at;
  }
  return bytes.size();
}

}  // namespace

std::vector<Bytes> SplitUnits(std::span<const uint8_t> annexB) {
  std::vector<Bytes> units;
  for (size_t start = FindStart(annexB, 0); start < annexB.size();) {
    const size_t begin = start + 3;
    start = FindStart(annexB, begin);
    size_t end = start;
    while (end > begin && annexB[end - 1] == 0) --end;  // of a longer start code, or padding
    if (end > begin) units.emplace_back(annexB.begin() + begin, annexB.begin() + end);
  }
  return units;
}

Bytes JoinAnnexB(const std::vector<Bytes>& units) {
  Bytes joined;
  for (const Bytes& unit : units) {
    Append(joined, kStartCode);
    Append(joined, unit);
  }
  return joined;
}

Bytes JoinLengths(const std::vector<Bytes>& units) {
  Bytes joined;
  for (const Bytes& unit : units) {
    AppendNumber(joined, unit.size(), 4);
    Append(joined, unit);
  }
  return joined;
}

Bytes MakeRecord(const std::vector<Bytes>& sets, bool hevc) {
  return hevc ? MakeHevcRecord(sets) : MakeAvcRecord(sets);
}

Bytes MakeUserData(size_t size, bool hevc) {
  constexpr uint8_t kUnregistered = 5;
  constexpr uint8_t kFiller = 0x55;
  constexpr uint8_t kTrailing = 0x80;
  Bytes unit = hevc ? Bytes{39 << 1, 1} : Bytes{6};
  unit.push_back(kUnregistered);
  // The payload's size takes a byte of 255 for every 255 that it counts.
  const size_t room = size - unit.size() - 2;
  const size_t payload = room % 256 == 255 ? room - room / 256 - 1 : room - room / 256;
  unit.insert(unit.end(), payload / 255, 255);
  unit.push_back(static_cast<uint8_t>(payload % 255));
  unit.insert(unit.end(), payload, kFiller);
  unit.push_back(kTrailing);
  return unit;
}

}  // namespace Veldrift::Transforms
