#include "tools/view/live_view.h"

#include <algorithm>
#include <utility>

#include "tools/receiver/sound_samples.h"

namespace Veldrift {
namespace {

// A window that is held up, by being moved say, doesn't pile up memory.
constexpr size_t kMostPictures = 40;

}  // namespace

// Another connection has another timeline.
bool LiveView::FollowConnection(const WholeFrame& frame) {
  if (frame.connection < connection_) return false;
  if (frame.connection == connection_) return true;
  connection_ = frame.connection;
  timeline_ = {};
  playout_ = {};
  pictures_.clear();
  return true;
}

void LiveView::Take(const SharedFrame& frame) {
  if (frame->stream != StreamType::Audio) return;
  const std::optional<SoundFormat> format = SoundOf(*frame);
  if (!format) return;
  SoundBlock block{0, SamplesOf(*frame), format->sampleRate, format->channels};
  block.samples.resize(block.samples.size() / format->channels * format->channels);
  const int64_t nowNs = SteadyNanos();
  int64_t dueNs = 0;
  {
    const MutexLock lock(mutex_);
    if (!FollowConnection(*frame)) return;
    block.timeMicros = timeline_.Place(StreamType::Audio, frame->timestamp);
    playout_.Note(block.timeMicros, nowNs + SoundOutput::kDeviceNs);
    dueNs = playout_.DueNs(block.timeMicros);
  }
  if (std::exchange(soundConnection_, frame->connection) != frame->connection) {
    player_.BeginAnew();
  }
  player_.Play(std::move(block), dueNs, nowNs);
}

void LiveView::Show(const AVFrame& picture, const WholeFrame& frame) {
  Picture kept(av_frame_clone(&picture));
  if (!kept) return;
  const int64_t nowNs = SteadyNanos();
  const MutexLock lock(mutex_);
  if (!FollowConnection(frame)) return;
  const int64_t timeMicros = timeline_.Place(StreamType::Video, frame.timestamp);
  playout_.Note(timeMicros, nowNs);
  if (pictures_.size() >= kMostPictures) pictures_.pop_front();
  pictures_.push_back({std::move(kept), playout_.DueNs(timeMicros), frame.firstDatagramNs});
}

std::optional<DuePicture> LiveView::Next(int64_t nowNs) {
  const MutexLock lock(mutex_);
  std::optional<DuePicture> due;
  while (!pictures_.empty() && pictures_.front().dueNs <= nowNs) {
    due = std::move(pictures_.front());
    pictures_.pop_front();
  }
  return due;
}

std::optional<int64_t> LiveView::NextDueNs() const {
  const MutexLock lock(mutex_);
  if (pictures_.empty()) return std::nullopt;
  return pictures_.front().dueNs;
}

int64_t LiveView::WaitNs() const {
  const MutexLock lock(mutex_);
  return playout_.WaitNs();
}

}  // namespace Veldrift
