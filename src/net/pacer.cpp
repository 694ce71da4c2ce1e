#include "net/pacer.h"

#include <algorithm>
#include <utility>

#include "support/guarded.h"
#include "support/plugin_log.h"

namespace Veldrift {

namespace {
constexpr LogCategory kLog{kLogSubsystem, "pacer"};
constexpr size_t kMaxAudioGroups = 4;
}  // namespace

Pacer::Pacer(Clock& clock) : clock_(clock), bucket_(clock.NowNanos()) {}

Pacer::~Pacer() { Stop(); }

void Pacer::Start(Sender sendVideo, Sender sendAudio) {
  if (running_.exchange(true)) return;
  sendVideo_ = std::move(sendVideo);
  sendAudio_ = std::move(sendAudio);
  bucket_ = TokenBucket(clock_.NowNanos());
  try {
    worker_ = std::thread([this] { RunGuarded(kLog, "pacer", [this] { Run(); }); });
  } catch (...) {
    running_ = false;
    throw;
  }
  PluginLog(kLog, kLogInfo, "Pacer started bitrate=%u bps", bitrate_.load());
}

void Pacer::Stop() {
  if (!running_.exchange(false)) return;
  {
    MutexLock lock(mutex_);
    ForgetQueue();
  }
  condition_.NotifyAll();
  worker_.join();
  sendVideo_ = nullptr;
  sendAudio_ = nullptr;
  PluginLog(kLog, kLogInfo, "Pacer stopped dropped=%llu failed=%llu bytes=%llu",
            static_cast<unsigned long long>(totalDropped_),
            static_cast<unsigned long long>(totalFailed_),
            static_cast<unsigned long long>(totalBytes_));
}

void Pacer::Enqueue(FrameGroup&& group) {
  if (group.Empty()) return;
  uint64_t droppedBytes = 0;
  {
    MutexLock lock(mutex_);
    droppedBytes = MakeRoom(group);
    ++QueuedGroups(group.IsVideo());
    queuedBytes_ += group.Bytes();
    queue_.push_back(std::move(group));
  }
  condition_.NotifyOne();
  if (droppedBytes > 0) ReportOverflow(droppedBytes);
}

uint64_t Pacer::MakeRoom(const FrameGroup& group) {
  const bool video = group.IsVideo();
  const size_t limit = video ? maxVideoGroups_ : kMaxAudioGroups;
  uint64_t droppedBytes = 0;
  while (QueuedGroups(video) >= limit && DropOldest(video, droppedBytes)) {
  }
  if (video && maxQueuedBytes_ != 0) {
    while (queuedBytes_ + group.Bytes() > maxQueuedBytes_ && DropOldest(true, droppedBytes)) {
    }
  }
  return droppedBytes;
}

bool Pacer::DropOldest(bool video, uint64_t& droppedBytes) {
  const auto oldest = std::find_if(queue_.begin(), queue_.end(), [video](const FrameGroup& group) {
    return group.IsVideo() == video;
  });
  if (oldest == queue_.end()) return false;
  queuedBytes_ -= oldest->Bytes();
  droppedBytes += oldest->Bytes();
  --QueuedGroups(video);
  ++totalDropped_;
  queue_.erase(oldest);
  return true;
}

size_t& Pacer::QueuedGroups(bool video) { return video ? queuedVideoGroups_ : queuedAudioGroups_; }

void Pacer::ForgetQueue() {
  queue_.clear();
  queuedVideoGroups_ = 0;
  queuedAudioGroups_ = 0;
  queuedBytes_ = 0;
}

void Pacer::ReportOverflow(uint64_t droppedBytes) {
  droppedSinceLog_ += 1;
  droppedBytesSinceLog_ += droppedBytes;
  const int64_t now = clock_.NowNanos();
  int64_t last = lastOverflowLogNanos_;
  if (last != 0 && now - last < kNanosPerSecond) return;
  if (!lastOverflowLogNanos_.compare_exchange_strong(last, now)) return;
  const uint64_t dropped = droppedSinceLog_.exchange(0);
  const uint64_t bytes = droppedBytesSinceLog_.exchange(0);
  size_t queued = 0;
  {
    MutexLock lock(mutex_);
    queued = queuedVideoGroups_;
  }
  PluginLog(kLog, kLogInfo,
            "Pacer overflow: dropped %zu video frame(s) in last ~1s (%zu bytes). queue=%zu "
            "queuedBytes=%zu bitrate=%u bps total_dropped=%llu",
            size_t(dropped), size_t(bytes), queued, size_t(queuedBytes_), bitrate_.load(),
            static_cast<unsigned long long>(totalDropped_));
}

void Pacer::ClearQueue() {
  size_t groups = 0;
  uint64_t bytes = 0;
  {
    MutexLock lock(mutex_);
    groups = queue_.size();
    bytes = queuedBytes_;
    ForgetQueue();
  }
  if (groups > 0) {
    PluginLog(kLog, kLogInfo, "Pacer queue cleared: %zu frame groups (%zu bytes) discarded", groups,
              size_t(bytes));
  }
}

void Pacer::Run() {
  FrameGroup group;
  while (TakeOldest(group)) Send(group);
}

bool Pacer::TakeOldest(FrameGroup& group) {
  MutexLock lock(mutex_);
  while (running_ && queue_.empty()) condition_.Wait(lock);
  if (!running_) return false;
  group = std::move(queue_.front());
  queue_.pop_front();
  --QueuedGroups(group.IsVideo());
  queuedBytes_ -= group.Bytes();
  return true;
}

void Pacer::Send(const FrameGroup& group) {
  const Sender& send = group.IsVideo() ? sendVideo_ : sendAudio_;
  group.ForEach([&](std::span<const std::byte> datagram) {
    if (!Pace(datagram.size())) return false;
    if (send && send(datagram)) {
      totalBytes_ += datagram.size();
    } else {
      ++totalFailed_;
    }
    return true;
  });
}

// Waits until `size` bytes may go; false if the pacer has stopped.
bool Pacer::Pace(size_t size) {
  while (running_) {
    const int64_t wait = bucket_.TakeOrWait(size, bitrate_, clock_.NowNanos());
    if (wait == 0) return running_;
    clock_.SleepFor(wait);
  }
  return false;
}

}  // namespace Veldrift
