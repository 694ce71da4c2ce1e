#include "live_sink.h"

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "net/media_datagram.h"
#include "support/clock.h"

namespace Veldrift {
namespace {

// What may wait for the player: half a second of picture and sound.
constexpr size_t kMostWaiting = 60;
constexpr int64_t kPatienceNs = kNanosPerSecond;  // with a player that has stopped reading
// Which sound there is is known so long behind the first picture. A host that stands still sends
// nothing behind it, so that the wait is by the clock.
constexpr int64_t kWaitForSoundNs = 150 * kNanosPerMilli;
constexpr int64_t kWaitForCodecNs = 3 * kNanosPerSecond;
// While nothing comes, a player's clock stands still: what then came so much later would stay late.
constexpr int64_t kLongestGapMicros = 250'000;
constexpr int64_t kBridgeMicros = 40'000;
// Behind a picture that nothing follows: what players look at before they show anything.
constexpr int64_t kRepeatMicros = 300'000;
// Many players throw away what they have looked at to learn what it is.
constexpr int64_t kAskAgainNs[] = {1 * kNanosPerSecond, 3 * kNanosPerSecond};

}  // namespace

LiveSink::LiveSink(std::unique_ptr<OutputPipe> pipe, std::optional<AVCodecID> codec)
    : pipe_(std::move(pipe)), wanted_(codec), thread_([this] { Run(); }) {}

void LiveSink::Take(const SharedFrame& frame) {
  const MutexLock lock(mutex_);
  if (finishing_ || done_) return;
  const bool video = frame->stream == StreamType::Video;
  if (queue_.size() >= kMostWaiting) {
    leftOut_ += queue_.size();
    queue_.clear();
    toNextKeyFrame_ = true;
    wantsKeyFrame_ = true;
  }
  if (toNextKeyFrame_ && !(video && frame->keyFrame)) {
    ++leftOut_;
    return;
  }
  toNextKeyFrame_ = false;
  queue_.push_back(frame);
  changed_.NotifyOne();
}

std::string LiveSink::Failure() const {
  const MutexLock lock(mutex_);
  return failure_;
}

size_t LiveSink::LeftOut() const {
  const MutexLock lock(mutex_);
  return leftOut_;
}

// What waits still goes out; a player that doesn't read any more isn't waited for.
void LiveSink::Finish() {
  {
    MutexLock lock(mutex_);
    finishing_ = true;
    changed_.NotifyAll();
    const int64_t deadline = SteadyNanos() + kPatienceNs;
    while (!ended_ && SteadyNanos() < deadline) SystemClock().WaitUntil(changed_, lock, deadline);
  }
  pipe_->GiveUp();
  if (thread_.joinable()) thread_.join();
}

bool LiveSink::Next(SharedFrame& frame) {
  const bool begins = !waiting_.empty();
  const int64_t due = begins ? waiting_.front().frame->wholeNs + kWaitForSoundNs : 0;
  frame = nullptr;
  MutexLock lock(mutex_);
  while (queue_.empty() && !finishing_) {
    if (!begins) {
      changed_.Wait(lock);
    } else if (SteadyNanos() < due) {
      SystemClock().WaitUntil(changed_, lock, due);
    } else {
      return true;
    }
  }
  if (queue_.empty()) return false;
  frame = std::move(queue_.front());
  queue_.pop_front();
  return true;
}

void LiveSink::Run() {
  SharedFrame frame;
  while (Next(frame)) {
    if (done_) continue;
    if (frame) Write(frame);
    if (BeginDue()) Begin();
  }
  container_.reset();
  const MutexLock lock(mutex_);
  ended_ = true;
  changed_.NotifyAll();
}

void LiveSink::Stop(std::string failure) {
  {
    const MutexLock lock(mutex_);
    failure_ = std::move(failure);
  }
  done_ = true;
}

// Another connection has another timeline: it goes on behind the last one's.
void LiveSink::FollowConnection(const WholeFrame& frame) {
  if (frame.connection == connection_) return;
  const bool first = connection_ == 0;
  connection_ = frame.connection;
  timeline_ = {};
  shiftMicros_ =
      (first ? 0 : lastMicros_ + kBridgeMicros) - timeline_.Place(frame.stream, frame.timestamp);
  references_ = false;
  waiting_.clear();
  wantsKeyFrame_ = true;
}

int64_t LiveSink::Place(const WholeFrame& frame) {
  int64_t micros = timeline_.Place(frame.stream, frame.timestamp) + shiftMicros_;
  if (micros - lastMicros_ > kLongestGapMicros) {
    shiftMicros_ -= micros - lastMicros_ - kBridgeMicros;
    micros = lastMicros_ + kBridgeMicros;
  }
  lastMicros_ = std::max(lastMicros_, micros);
  return micros;
}

// The picture that greets a phone can be older than what the phone has asked for.
void LiveSink::NoteKeyFrame(const WholeFrame& frame) {
  const std::optional<KeyFrameInfo> info = InspectKeyFrame(frame.data);
  if (!info) return;
  const bool same = video_ && video_->codec == info->codec;
  if (container_ && !same) {
    return Stop("the stream's codec has changed, which no player follows: start again");
  }
  if (!same) waiting_.clear();
  if (!container_ && wanted_ && info->codec != wanted_ &&
      frame.wholeNs - firstNs_ < kWaitForCodecNs) {
    return;
  }
  video_ = info;
  references_ = true;
  wantsKeyFrame_ = false;
}

void LiveSink::Write(const SharedFrame& frame) {
  if (frame->connection < connection_) return;
  if (firstNs_ == 0) firstNs_ = frame->wholeNs;
  FollowConnection(*frame);
  const Entry entry{frame, Place(*frame)};
  if (frame->stream == StreamType::Audio && !container_) sound_ = SoundOf(*frame);
  if (frame->stream == StreamType::Video && frame->keyFrame) NoteKeyFrame(*frame);
  if (done_) return;
  if (container_) {
    WriteEntry(entry);
    AskAgainAtTheStart(frame->wholeNs);
  } else if (references_) {
    waiting_.push_back(entry);
  }
}

bool LiveSink::BeginDue() const {
  if (waiting_.empty() || done_) return false;
  const bool soundKnown = sound_.has_value() && waiting_.size() > 1;
  return soundKnown || SteadyNanos() >= waiting_.front().frame->wholeNs + kWaitForSoundNs;
}

void LiveSink::Begin() {
  container_ = std::make_unique<LiveContainer>(
      [this](std::span<const std::byte> bytes) { return pipe_->Write(bytes); });
  const SoundFormat format = sound_.value_or(LiveSound::kUsual);
  if (!container_->Open(*video_, format)) return Stop("");
  track_ =
      std::make_unique<LiveSound>(format, [this](std::span<const float> samples, int64_t time) {
        return container_->WriteSound(samples, time);
      });
  beginNs_ = waiting_.front().frame->wholeNs;
  const int64_t start = waiting_.front().timeMicros;
  shiftMicros_ -= start;
  lastMicros_ -= start;
  std::deque<Entry> waiting = std::exchange(waiting_, {});
  for (Entry& entry : waiting) {
    entry.timeMicros -= start;
    WriteEntry(entry);
  }
  if (waiting.size() == 1) Repeat(waiting.front());
}

// A key frame stands for itself, and can be shown again.
void LiveSink::Repeat(Entry entry) {
  for (; entry.timeMicros < kRepeatMicros && !done_; entry.timeMicros += kBridgeMicros) {
    WritePicture(entry);
  }
  lastMicros_ = std::max(lastMicros_, entry.timeMicros);
}

void LiveSink::WriteEntry(const Entry& entry) {
  if (entry.frame->stream == StreamType::Video) return WritePicture(entry);
  if (!track_->Add(*entry.frame, entry.timeMicros)) Stop("");
}

void LiveSink::WritePicture(const Entry& entry) {
  if (!references_) return;
  // Matroska counts milliseconds, and players want each picture later than the one before.
  constexpr int64_t kStep = 1000;
  const int64_t time = std::max(entry.timeMicros, lastVideoMicros_ + kStep);
  lastVideoMicros_ = time;
  if (!container_->WriteVideo(*entry.frame, time) || !track_->Accompany(time)) Stop("");
}

void LiveSink::AskAgainAtTheStart(int64_t nowNs) {
  if (asked_ >= int(std::size(kAskAgainNs)) || nowNs - beginNs_ < kAskAgainNs[asked_]) return;
  ++asked_;
  wantsKeyFrame_ = true;
}

}  // namespace Veldrift
