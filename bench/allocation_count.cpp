#include "bench/allocation_count.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<uint64_t> allocations{0};
}

namespace Veldrift {
uint64_t AllocationCount() { return allocations; }
}  // namespace Veldrift

void* operator new(size_t size) {
  ++allocations;
  if (void* memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void* operator new(size_t size, std::align_val_t alignment) {
  ++allocations;
  const size_t unit = size_t(alignment);
  if (void* memory = std::aligned_alloc(unit, (size + unit - 1) / unit * unit)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory, size_t, std::align_val_t) noexcept { std::free(memory); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
