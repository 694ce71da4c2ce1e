#include "net/block_code.h"

#include <cm256cc/cm256.h>

#include <array>

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

bool EncodeParity(std::span<const std::byte* const> blocks, size_t parityCount, std::byte* parity) {
  std::array<CM256::cm256_block, kMaxCodeBlocks> table;
  if (blocks.size() > table.size()) return false;
  for (size_t i = 0; i < blocks.size(); ++i) {
    // The library's record serves its decoder too; the encoder only reads.
    table[i] = {const_cast<std::byte*>(blocks[i]), uint8_t(i)};
  }
  return codec.cm256_encode(Shape(blocks.size(), parityCount), table.data(), parity) == 0;
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
