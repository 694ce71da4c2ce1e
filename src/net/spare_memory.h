// The memory of frame groups: a few blocks of groups that have been sent are kept for the next
// ones, so that a steady stream allocates nothing.
//
// Threads: any, at once; a group is made on an encoder's thread and ends on the pacer's.
#pragma once

#include <cstddef>
#include <memory>

namespace Veldrift {

// Keeps the block or frees it.
struct GiveBack {
  void operator()(std::byte* block) const;
};
using SpareMemory = std::unique_ptr<std::byte[], GiveBack>;

inline constexpr size_t kCacheLine = 64;

// At least `size` bytes, of any content, from a cache line's start. A kept block that is too small
// is freed: what is kept grows to the largest groups in use, up to 1 MiB each.
SpareMemory TakeSpareMemory(size_t size);

}  // namespace Veldrift
