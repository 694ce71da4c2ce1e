#include "net/spare_memory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace Veldrift {
namespace {

constexpr size_t kSmall = 3'000;
constexpr size_t kLarge = 300'000;

// What earlier tests left.
void TakeAllThatIsKept(std::vector<SpareMemory>& out) {
  for (int i = 0; i < 4; ++i) out.push_back(TakeSpareMemory(kSmall));
}

TEST(SpareMemory, ABlockGivenBackIsUsedAgain) {
  std::vector<SpareMemory> others;
  TakeAllThatIsKept(others);
  SpareMemory first = TakeSpareMemory(kSmall);
  const std::byte* const place = first.get();
  first.reset();
  EXPECT_EQ(TakeSpareMemory(kSmall).get(), place);
  EXPECT_EQ(TakeSpareMemory(10).get(), place);
}

TEST(SpareMemory, TwoAtOnceNeverShare) {
  std::vector<SpareMemory> blocks;
  for (int i = 0; i < 12; ++i) blocks.push_back(TakeSpareMemory(kSmall));
  blocks.clear();
  for (int i = 0; i < 12; ++i) blocks.push_back(TakeSpareMemory(kSmall));
  for (size_t i = 0; i < blocks.size(); ++i) std::fill_n(blocks[i].get(), kSmall, std::byte(i));
  for (size_t i = 0; i < blocks.size(); ++i) {
    EXPECT_TRUE(std::all_of(blocks[i].get(), blocks[i].get() + kSmall, [i](std::byte byte) {
      return byte == std::byte(i);
    })) << i;
  }
}

// The address sanitizer sees a small block that is taken for a large one; without it the large one
// must at least outlive its use.
TEST(SpareMemory, ATooSmallBlockIsNotGivenOut) {
  std::vector<SpareMemory> others;
  TakeAllThatIsKept(others);
  TakeSpareMemory(kSmall).reset();
  const SpareMemory large = TakeSpareMemory(kLarge);
  std::fill_n(large.get(), kLarge, std::byte{1});
  const SpareMemory small = TakeSpareMemory(kSmall);
  std::fill_n(small.get(), kSmall, std::byte{2});
  EXPECT_EQ(std::count(large.get(), large.get() + kLarge, std::byte{1}), std::ptrdiff_t(kLarge));
}

}  // namespace
}  // namespace Veldrift
