// The block erasure code over a frame's fragments: Cauchy Reed-Solomon in GF(256), blocks of
// kFragmentBytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace Veldrift {

// False if the code's library failed to initialise at load: frames then go without parity.
bool BlockCodeAvailable();

// Computes `parityCount` recovery blocks, end to end into `parity`, from the blocks that `data` is
// cut into, read where they lie; the last one counts as padded with zeros. At least 1 of both, and
// 256 at most together. False if the library refused.
bool EncodeParity(std::span<const std::byte> data, size_t parityCount, std::byte* parity);

// One received block: data blocks have their index, recovery blocks K + their number.
struct CodeBlock {
  std::byte* data;  // kFragmentBytes
  uint8_t index;
};

// Restores the lost ones of K data blocks from exactly K different received blocks: recovery blocks
// are overwritten with data blocks, and their index with the data block's. False if the library
// refused.
bool RecoverBlocks(std::span<CodeBlock> blocks, size_t parityCount);

}  // namespace Veldrift
