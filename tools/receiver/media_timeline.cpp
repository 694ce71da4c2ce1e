#include "tools/receiver/media_timeline.h"

namespace Veldrift {

namespace {

constexpr int64_t kStepBackMicros = 1'000'000;
constexpr int64_t kBridgeMicros = 20'000;

}  // namespace

int64_t MediaTimeline::Place(StreamType stream, uint32_t timestamp) {
  const int64_t unwrapped =
      newest_ ? *newest_ + int32_t(timestamp - uint32_t(*newest_)) : int64_t{timestamp};
  newest_ = unwrapped;
  Line& line = lines_[stream == StreamType::Video ? 0 : 1];
  int64_t placed = unwrapped + line.shift;
  if (line.last && placed < *line.last - kStepBackMicros) {
    line.shift += *line.last + kBridgeMicros - placed;
    placed = unwrapped + line.shift;
  }
  line.last = placed;
  return placed;
}

}  // namespace Veldrift
