#include "ui/qr_tables.h"

#include <array>

namespace Veldrift {
namespace {

constexpr std::array<QrVersionTraits, kQrVersions> kTraits = {{
    {9, 1, 17},     {16, 1, 28},    {26, 2, 22},    {36, 4, 16},    {46, 4, 22},   {60, 4, 28},
    {66, 5, 26},    {86, 6, 26},    {100, 8, 24},   {122, 8, 28},   {140, 11, 24}, {158, 11, 28},
    {180, 16, 22},  {197, 16, 24},  {223, 18, 24},  {253, 16, 30},  {283, 19, 28}, {313, 21, 28},
    {341, 25, 26},  {385, 25, 28},  {406, 25, 30},  {442, 34, 24},  {464, 30, 30}, {514, 32, 30},
    {538, 35, 30},  {596, 37, 30},  {628, 40, 30},  {661, 42, 30},  {701, 45, 30}, {745, 48, 30},
    {793, 51, 30},  {845, 54, 30},  {901, 57, 30},  {961, 60, 30},  {986, 63, 30}, {1054, 66, 30},
    {1096, 70, 30}, {1142, 74, 30}, {1222, 77, 30}, {1276, 81, 30},
}};

constexpr int kModeBits = 4;
constexpr int kSpareBits = 7;

}  // namespace

const QrVersionTraits& TraitsOfQrVersion(int version) { return kTraits[size_t(version - 1)]; }

int QrLengthBits(int version) { return version <= 9 ? 8 : 16; }

std::optional<int> SmallestQrVersion(size_t bytes) {
  for (int version = 1; version <= kQrVersions; ++version) {
    const size_t header = size_t(kModeBits + QrLengthBits(version) + kSpareBits);
    if (header + 8 * bytes <= 8 * size_t(TraitsOfQrVersion(version).dataCodewords)) return version;
  }
  return std::nullopt;
}

std::vector<int> QrAlignmentPositions(int version) {
  if (version == 1) return {};
  const int count = version / 7 + 2;
  const int step = version == 32 ? 26 : (4 * version + 2 * count + 1) / (2 * count - 2) * 2;
  std::vector<int> positions(size_t(count), 6);
  int position = 17 + 4 * version - 7;
  for (size_t i = positions.size() - 1; i > 0; --i, position -= step) positions[i] = position;
  return positions;
}

}  // namespace Veldrift
