#include "ui/qr_codewords.h"

#include <algorithm>
#include <span>

#include "ui/qr_tables.h"
#include "ui/reed_solomon.h"

namespace Veldrift {
namespace {

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

}  // namespace Veldrift
