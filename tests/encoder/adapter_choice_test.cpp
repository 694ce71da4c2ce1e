#include "encoder/adapter_choice.h"

#include <gtest/gtest.h>

#include <vector>

namespace Veldrift {
namespace {

constexpr uint64_t kGiB = uint64_t{1} << 30;
constexpr AdapterTraits kIntel{kVendorIntel, 0};
constexpr AdapterTraits kIntelCard{kVendorIntel, 8 * kGiB};
constexpr AdapterTraits kAmd{kVendorAmd, 16 * kGiB};
constexpr AdapterTraits kNvidia{kVendorNvidia, 4 * kGiB};
constexpr AdapterTraits kNvidiaBig{kVendorNvidia, 24 * kGiB};
constexpr AdapterTraits kUnknown{0x1AF4, 32 * kGiB};
constexpr AdapterTraits kEmulated{kVendorNvidia, 64 * kGiB, true};

TEST(AdapterChoice, ThePreferredVendorComesFirstThenNvidiaThenTheMostMemory) {
  struct Case {
    const char* what;
    std::vector<AdapterTraits> adapters;
    uint32_t preferred;
    std::optional<size_t> chosen;
  };
  const Case cases[] = {
      {"none", {}, 0, std::nullopt},
      {"an emulation alone", {kEmulated}, kVendorNvidia, std::nullopt},
      {"one", {kUnknown}, kVendorIntel, 0},
      {"the emulation is passed over", {kEmulated, kIntel}, 0, 1},
      {"nothing preferred: NVIDIA, whatever the memory", {kIntel, kAmd, kNvidia, kUnknown}, 0, 2},
      {"the preferred one before NVIDIA", {kNvidiaBig, kIntel, kAmd}, kVendorIntel, 1},
      {"the preferred one first", {kIntel, kNvidiaBig}, kVendorIntel, 0},
      {"a preferred one that isn't there", {kIntel, kNvidia, kUnknown}, kVendorAmd, 1},
      {"the larger of two preferred ones", {kIntel, kNvidia, kIntelCard}, kVendorIntel, 2},
      {"the larger NVIDIA", {kNvidia, kNvidiaBig, kNvidia}, kVendorNvidia, 1},
      {"the larger of the rest", {kIntel, kAmd, kIntelCard}, 0, 1},
      {"of equals the first", {kAmd, kAmd, kAmd}, kVendorAmd, 0},
      // An adapter whose vendor isn't told isn't what "no preference" means.
      {"vendor 0", {AdapterTraits{0, kGiB}, kAmd}, 0, 1},
  };
  for (const Case& c : cases) EXPECT_EQ(ChooseAdapter(c.adapters, c.preferred), c.chosen) << c.what;
}

TEST(AdapterChoice, AnEnginePrefersItsVendor) {
  EXPECT_EQ(PreferredVendorId("intel"), 0x8086u);
  EXPECT_EQ(PreferredVendorId("amd"), 0x1002u);
  EXPECT_EQ(PreferredVendorId("nvidia"), 0x10DEu);
  for (const char* engine : {"auto", "software", "sw", "", "nvidia2"}) {
    EXPECT_EQ(PreferredVendorId(engine), 0u) << engine;
  }
}

}  // namespace
}  // namespace Veldrift
