#include "web_sink.h"

namespace Veldrift {

namespace {

// Two seconds of 60 pictures and their sound: what is left out on top is a loss like any other.
constexpr size_t kMostWaiting = 240;

}  // namespace

WebSink::WebSink(WebBroadcast& broadcast, Clock& clock)
    : clock_(clock), track_(broadcast), worker_(kMostWaiting) {
  worker_.Start([this](const SharedFrame& frame) {
    const MutexLock lock(mutex_);
    track_.Take(*frame, clock_.NowNanos());
  });
}

bool WebSink::WantsKeyFrame() const {
  const MutexLock lock(mutex_);
  return track_.WantsKeyFrame(clock_.NowNanos());
}

void WebSink::Tick() {
  const MutexLock lock(mutex_);
  track_.Tick(clock_.NowNanos());
}

int64_t WebSink::LineMicros() const {
  const MutexLock lock(mutex_);
  return track_.LineMicros(clock_.NowNanos());
}

}  // namespace Veldrift
