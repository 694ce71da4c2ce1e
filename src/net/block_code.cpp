#include "net/block_code.h"

#include <cm256cc/cm256.h>

#include <array>
#include <cstring>

#include "net/media_datagram.h"

namespace Veldrift {

namespace {

// Built when the module loads, before any frame.
CM256 codec;

CM256::cm256_encoder_params Shape(size_t dataCount, size_t parityCount) {
  return {int(dataCount), int(parityCount), int(kFragmentBytes)};
}

}  // namespace

bool BlockCodeAvailable() { return codec.isInitialized(); }

bool EncodeParity(std::span<const std::byte> data, size_t parityCount, std::byte* parity) {
  std::array<CM256::cm256_block, kMaxCodeBlocks> table;
  std::array<std::byte, kFragmentBytes> padded;
  const size_t dataCount = (data.size() + kFragmentBytes - 1) / kFragmentBytes;
  if (dataCount > table.size()) return false;
  for (size_t i = 0; i < dataCount; ++i) {
    // The library's record serves its decoder too; the encoder only reads.
    table[i] = {const_cast<std::byte*>(data.data() + i * kFragmentBytes), uint8_t(i)};
  }
  if (const size_t rest = data.size() % kFragmentBytes; rest != 0) {
    std::memcpy(padded.data(), data.data() + data.size() - rest, rest);
    std::memset(padded.data() + rest, 0, kFragmentBytes - rest);
    table[dataCount - 1].Block = padded.data();
  }
  return codec.cm256_encode(Shape(dataCount, parityCount), table.data(), parity) == 0;
}

bool RecoverBlocks(std::span<CodeBlock> blocks, size_t parityCount) {
  std::array<CM256::cm256_block, kMaxCodeBlocks> table;
  if (blocks.size() > table.size()) return false;
  for (size_t i = 0; i < blocks.size(); ++i) table[i] = {blocks[i].data, blocks[i].index};
  if (codec.cm256_decode(Shape(blocks.size(), parityCount), table.data()) != 0) return false;
  for (size_t i = 0; i < blocks.size(); ++i) blocks[i].index = table[i].Index;
  return true;
}

}  // namespace Veldrift
