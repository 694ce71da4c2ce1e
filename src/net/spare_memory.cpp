#include "net/spare_memory.h"

#include <array>
#include <atomic>
#include <cstring>
#include <new>

namespace Veldrift {

namespace {

// One group is being made, one sent, and one or two wait between them.
constexpr size_t kKeptBlocks = 4;
constexpr size_t kLargestKept = 1 << 20;

// A block's size stands on the line in front of it.
constexpr size_t kSizeBytes = kCacheLine;
constexpr std::align_val_t kAlignment{kCacheLine};

std::byte* NewBlock(size_t size) {
  auto* memory = static_cast<std::byte*>(::operator new(kSizeBytes + size, kAlignment));
  std::memcpy(memory, &size, sizeof size);
  return memory + kSizeBytes;
}

size_t SizeOf(const std::byte* block) {
  size_t size = 0;
  std::memcpy(&size, block - kSizeBytes, sizeof size);
  return size;
}

void FreeBlock(std::byte* block) { ::operator delete(block - kSizeBytes, kAlignment); }

// A place is emptied and filled in one step each, so no lock is needed.
class Shelf {
 public:
  ~Shelf() {
    while (std::byte* block = Take()) FreeBlock(block);
  }

  // Null if there is none.
  std::byte* Take() {
    for (std::atomic<std::byte*>& place : places_) {
      if (place.load(std::memory_order_relaxed) == nullptr) continue;
      if (std::byte* block = place.exchange(nullptr, std::memory_order_acquire)) return block;
    }
    return nullptr;
  }

  // False if there is no room.
  bool Put(std::byte* block) {
    for (std::atomic<std::byte*>& place : places_) {
      std::byte* empty = nullptr;
      if (place.load(std::memory_order_relaxed) == nullptr &&
          place.compare_exchange_strong(empty, block, std::memory_order_release,
                                        std::memory_order_relaxed)) {
        return true;
      }
    }
    return false;
  }

 private:
  std::array<std::atomic<std::byte*>, kKeptBlocks> places_{};
};

Shelf shelf;

}  // namespace

void GiveBack::operator()(std::byte* block) const {
  if (SizeOf(block) > kLargestKept || !shelf.Put(block)) FreeBlock(block);
}

SpareMemory TakeSpareMemory(size_t size) {
  std::byte* block = shelf.Take();
  if (block != nullptr && SizeOf(block) >= size) return SpareMemory(block);
  if (block != nullptr) FreeBlock(block);
  return SpareMemory(NewBlock(size));
}

}  // namespace Veldrift
