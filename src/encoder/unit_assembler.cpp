#include "encoder/unit_assembler.h"

#include <atomic>
#include <cstdio>
#include <utility>

#include "encoder/hardware_encoder.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

constexpr uint32_t kDescribedUnits = 25;  // one in so many
constexpr size_t kDescribedBytes = 16;

void DescribeNow(ByteSpan unit, bool marked, bool found, int32_t codec) {
  char bytes[kDescribedBytes * 3 + 1] = {};
  for (size_t i = 0; i < kDescribedBytes; ++i) {
    std::snprintf(bytes + i * 3, 4, "%02X ", unit[i]);
  }
  bytes[kDescribedBytes * 3 - 1] = '\0';
  PluginLog(
      kCategory, kLogInfo,
      "[Sunshine] Step 1 NAL diag: cleanPoint=%d scanFound=%d isHevc=%d size=%zu first16=[%s]",
      marked, found, codec == kCodecHevc, unit.size(), bytes);
}

void DescribeNowAndThen(ByteSpan unit, bool marked, bool found, int32_t codec) {
  static std::atomic<uint32_t> units{0};
  if (units.fetch_add(1, std::memory_order_relaxed) % kDescribedUnits != 0) return;
  if (unit.size() >= kDescribedBytes) DescribeNow(unit, marked, found, codec);
}

}  // namespace

void UnitAssembler::ReadHeader(ByteSpan header) {
  parameterSets_ = ParameterSetsFromHeader(header, codec_);
  setsBesideStream_ = !parameterSets_.empty();
}

// What the codec did is looked at, not trusted: sets that it repeats are the newest, and are there.
bool UnitAssembler::LearnSets(ByteSpan unit) {
  std::vector<uint8_t> own = FindParameterSets(unit, codec_);
  if (own.empty()) return false;
  parameterSets_ = std::move(own);
  return true;
}

// Sets are put in front beforehand where that is known to be right: that moves nothing.
void UnitAssembler::Assemble(ByteSpan data, bool marked, EncodedUnit& unit) {
  std::vector<uint8_t>& out = unit.data;
  out.clear();
  out.reserve(parameterSets_.size() + data.size());
  if (marked && setsBesideStream_) out.assign(parameterSets_.begin(), parameterSets_.end());
  const size_t front = out.size();
  AppendAsAnnexB(data, out);
  const ByteSpan body = ByteSpan(out).subspan(front);
  const bool found = ContainsKeyFrame(body, codec_);
  DescribeNowAndThen(body, marked, found, codec_);
  unit.keyFrame = marked || found;
  const bool bringsSets = !setsBesideStream_ && LearnSets(body);
  if (unit.keyFrame && front == 0 && !bringsSets) {
    out.insert(out.begin(), parameterSets_.begin(), parameterSets_.end());
  }
  PluginLog(kCategory, kLogDebug, "frame encoded: %zu bytes keyframe=%d", out.size(),
            unit.keyFrame);
}

}  // namespace Veldrift
