#include "encoder/conversion_timer.h"

#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};
constexpr uint32_t kFramesPerLine = 120;

}  // namespace

void ConversionTimer::Add(int64_t elapsedNs, const char* path) {
  micros_ += static_cast<double>(elapsedNs) / 1000;
  if (++frames_ < kFramesPerLine) return;
  PluginLog(kCategory, kLogDebug,
            "[dx] render-thread convert+submit avg=%.3f ms over %u frames (%s)",
            micros_ / frames_ / 1000, frames_, path);
  micros_ = 0;
  frames_ = 0;
}

}  // namespace Veldrift
