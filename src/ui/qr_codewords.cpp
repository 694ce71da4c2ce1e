#include "ui/qr_codewords.h"

#include <algorithm>
#include <array>
#include <utility>

namespace Veldrift {
namespace {

// ---- The versions -------------------------------------------------------------------------------

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

// ---- GF(256) ------------------------------------------------------------------------------------

constexpr unsigned kPolynomial = 0x11D;
constexpr size_t kOrder = 255;  // of the generator

struct FieldTables {
  // Twice over, so that the sum of two logarithms needs no reduction.
  std::array<uint8_t, 2 * kOrder> exponent{};
  std::array<uint8_t, 256> logarithm{};  // of 1 to 255
};

FieldTables BuildTables() {
  FieldTables tables;
  unsigned value = 1;
  for (size_t power = 0; power < kOrder; ++power) {
    tables.exponent[power] = tables.exponent[power + kOrder] = uint8_t(value);
    tables.logarithm[value] = uint8_t(power);
    value <<= 1;
    if (value > 0xFF) value ^= kPolynomial;
  }
  return tables;
}

const FieldTables& Tables() {
  static const FieldTables tables = BuildTables();
  return tables;
}

uint8_t Multiply(uint8_t a, uint8_t b) {
  if (a == 0 || b == 0) return 0;
  const FieldTables& tables = Tables();
  return tables.exponent[size_t(tables.logarithm[a]) + tables.logarithm[b]];
}

// ---- Data and blocks ----------------------------------------------------------------------------

constexpr unsigned kByteMode = 0b0100;
constexpr size_t kTerminatorBits = 4;
constexpr uint8_t kFirstPad = 236;
constexpr uint8_t kSecondPad = 17;

// Bits into bytes, the most significant one first.
class BitWriter {
 public:
  void Put(unsigned value, int count) {
    for (int bit = count - 1; bit >= 0; --bit) PutBit((value >> bit) & 1);
  }
  size_t Count() const { return count_; }
  std::vector<uint8_t> Take() { return std::move(bytes_); }

 private:
  void PutBit(unsigned bit) {
    if (count_ % 8 == 0) bytes_.push_back(0);
    bytes_.back() = uint8_t(bytes_.back() | bit << (7 - count_ % 8));
    ++count_;
  }

  std::vector<uint8_t> bytes_;
  size_t count_ = 0;
};

struct Block {
  std::span<const uint8_t> data;
  std::vector<uint8_t> correction;
};

// The last blocks are one codeword longer where the data doesn't divide evenly.
std::vector<Block> SplitIntoBlocks(std::span<const uint8_t> data, const QrVersionTraits& traits) {
  const auto count = size_t(traits.blocks);
  const size_t shortLength = data.size() / count;
  const size_t shortBlocks = count - data.size() % count;
  const std::vector<uint8_t> divisor = ReedSolomonDivisor(traits.correctionPerBlock);
  std::vector<Block> blocks;
  for (size_t i = 0; i < count; ++i) {
    const auto part = data.first(shortLength + (i < shortBlocks ? 0 : 1));
    data = data.subspan(part.size());
    blocks.push_back({part, ReedSolomonRemainder(part, divisor)});
  }
  return blocks;
}

std::vector<uint8_t> Interleave(const std::vector<Block>& blocks) {
  std::vector<uint8_t> codewords;
  for (size_t column = 0; column < blocks.back().data.size(); ++column) {
    for (const Block& block : blocks) {
      if (column < block.data.size()) codewords.push_back(block.data[column]);
    }
  }
  for (size_t column = 0; column < blocks.back().correction.size(); ++column) {
    for (const Block& block : blocks) codewords.push_back(block.correction[column]);
  }
  return codewords;
}

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

std::vector<uint8_t> MakeQrData(std::string_view bytes, int version) {
  const auto capacity = size_t(TraitsOfQrVersion(version).dataCodewords);
  BitWriter bits;
  bits.Put(kByteMode, 4);
  bits.Put(unsigned(bytes.size()), QrLengthBits(version));
  for (const char byte : bytes) bits.Put(uint8_t(byte), 8);
  bits.Put(0, int(std::min(kTerminatorBits, 8 * capacity - bits.Count())));
  std::vector<uint8_t> data = bits.Take();  // whole bytes: the last one's rest is zero
  for (uint8_t pad = kFirstPad; data.size() < capacity; pad ^= kFirstPad ^ kSecondPad) {
    data.push_back(pad);
  }
  return data;
}

std::vector<uint8_t> MakeQrCodewords(std::string_view bytes, int version) {
  const std::vector<uint8_t> data = MakeQrData(bytes, version);
  return Interleave(SplitIntoBlocks(data, TraitsOfQrVersion(version)));
}

std::vector<uint8_t> ReedSolomonDivisor(int degree) {
  std::vector<uint8_t> divisor(size_t(degree), 0);
  divisor.back() = 1;
  uint8_t root = 1;
  for (int i = 0; i < degree; ++i) {
    // Times (x - root); minus is plus here.
    for (size_t j = 0; j < divisor.size(); ++j) {
      divisor[j] = Multiply(divisor[j], root);
      if (j + 1 < divisor.size()) divisor[j] ^= divisor[j + 1];
    }
    root = Multiply(root, 2);
  }
  return divisor;
}

std::vector<uint8_t> ReedSolomonRemainder(std::span<const uint8_t> data,
                                          std::span<const uint8_t> divisor) {
  std::vector<uint8_t> remainder(divisor.size(), 0);
  for (const uint8_t byte : data) {
    const uint8_t factor = byte ^ remainder.front();
    std::shift_left(remainder.begin(), remainder.end(), 1);
    remainder.back() = 0;
    for (size_t i = 0; i < divisor.size(); ++i) remainder[i] ^= Multiply(divisor[i], factor);
  }
  return remainder;
}

}  // namespace Veldrift
