#include "encoder/adapter_choice.h"

#include <tuple>

namespace Veldrift {
namespace {

// Greater is better.
auto Rank(const AdapterTraits& adapter, uint32_t preferredVendorId) {
  return std::tuple(preferredVendorId != 0 && adapter.vendorId == preferredVendorId,
                    adapter.vendorId == kVendorNvidia, adapter.videoMemory);
}

}  // namespace

uint32_t PreferredVendorId(std::string_view engineId) {
  if (engineId == "intel") return kVendorIntel;
  if (engineId == "amd") return kVendorAmd;
  if (engineId == "nvidia") return kVendorNvidia;
  return 0;
}

std::optional<size_t> ChooseAdapter(std::span<const AdapterTraits> adapters,
                                    uint32_t preferredVendorId) {
  std::optional<size_t> best;
  for (size_t i = 0; i < adapters.size(); ++i) {
    if (adapters[i].software) continue;
    if (!best || Rank(adapters[i], preferredVendorId) > Rank(adapters[*best], preferredVendorId)) {
      best = i;
    }
  }
  return best;
}

}  // namespace Veldrift
