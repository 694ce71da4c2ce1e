#include "stream_checker.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

#include "support/clock.h"

namespace Veldrift {

namespace {

// A new phone is greeted with the last picture that was kept; it may come between the first ones.
constexpr uint64_t kGreetingPictures = 10;
// Longer than that, and the two clocks have nothing to do with each other.
constexpr int64_t kLongestDelayNs = 60 * kNanosPerSecond;

std::optional<PatternStamp> StampOf(const AVFrame& picture) {
  const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(AVPixelFormat(picture.format));
  if (format == nullptr || format->comp[0].depth != 8 || format->comp[0].step != 1) {
    return std::nullopt;
  }
  return ReadStamp(picture.data[0], picture.width, picture.height, picture.linesize[0]);
}

void AddDelay(DelayStats& stats, int64_t nanos) {
  if (nanos >= 0 && nanos < kLongestDelayNs) stats.Add(nanos);
}

}  // namespace

void StreamChecker::Fault(uint64_t& counter, const WholeFrame& frame, const char* what) {
  ++counter;
  if (counters_.firstFault.empty()) {
    counters_.firstFault = "frame " + std::to_string(frame.frameNumber) + ": " + what;
  }
}

void StreamChecker::MeasureFraming(const WholeFrame& frame) {
  if (!frame.sendTimeMicros) return;
  const auto wholeMicros = uint32_t(frame.wholeNs / kNanosPerMicro);
  AddDelay(framingToWhole_, int64_t{int32_t(wholeMicros - *frame.sendTimeMicros)} * kNanosPerMicro);
}

void StreamChecker::Follow(const PatternStamp& stamp, const WholeFrame& frame) {
  if (last_) {
    const auto ahead = int32_t(stamp.frameNumber - last_->frameNumber);
    if (ahead < 0 && pictures_ <= kGreetingPictures && !replayed_) {
      replayed_ = true;
      ++counters_.replayed;
      return;
    }
    if (ahead < 0) {
      Fault(counters_.outOfOrder, frame, "shows an earlier picture than the one before");
    } else if (ahead == 0) {
      ++counters_.repeated;
    } else {
      counters_.neverSeen += uint64_t(ahead - 1);
    }
  }
  last_ = stamp;
}

// Another plug-in's pictures are another order.
void StreamChecker::FollowConnection(uint32_t connection) {
  if (connection == connection_) return;
  connection_ = connection;
  pictures_ = 0;
  replayed_ = false;
  last_.reset();
}

void StreamChecker::Look(const AVFrame& picture, const WholeFrame& frame, int64_t nowNs) {
  FollowConnection(frame.connection);
  ++pictures_;
  MeasureFraming(frame);
  const std::optional<PatternStamp> stamp = StampOf(picture);
  if (!stamp) {
    if (counters_.stamped > 0) Fault(counters_.unreadable, frame, "its stamp can't be read");
    return;
  }
  ++counters_.stamped;
  const bool isNew = !last_ || int32_t(stamp->frameNumber - last_->frameNumber) > 0;
  if (isNew && pictures_ > 1) {  // the greeting's picture may have waited any time
    const auto pushedNs = int64_t(stamp->timeMicros) * kNanosPerMicro;
    AddDelay(pushToWhole_, frame.wholeNs - pushedNs);
    AddDelay(pushToPicture_, nowNs - pushedNs);
  }
  Follow(*stamp, frame);
}

}  // namespace Veldrift
