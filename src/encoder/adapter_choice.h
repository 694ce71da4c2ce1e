// Which of a machine's graphics adapters converts and encodes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace Veldrift {

inline constexpr uint32_t kVendorIntel = 0x8086;
inline constexpr uint32_t kVendorAmd = 0x1002;
inline constexpr uint32_t kVendorNvidia = 0x10DE;

// What the choice looks at.
struct AdapterTraits {
  uint32_t vendorId = 0;
  uint64_t videoMemory = 0;  // bytes of its own
  bool software = false;     // an emulation, never chosen
};

// The vendor whose adapter an engine wants; 0 if it wants none in particular. `engineId` as
// NormaliseEngineId leaves it.
uint32_t PreferredVendorId(std::string_view engineId);

// The adapter's place in `adapters`. The preferred vendor (0 for none) comes before others, NVIDIA
// before the rest, more memory before less; of equals the first. Nothing without an adapter of
// hardware.
std::optional<size_t> ChooseAdapter(std::span<const AdapterTraits> adapters,
                                    uint32_t preferredVendorId);

}  // namespace Veldrift
