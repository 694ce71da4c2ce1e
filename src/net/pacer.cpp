#include "net/pacer.h"

#include <algorithm>
#include <utility>

#include "support/guarded.h"
#include "support/plugin_log.h"

namespace Veldrift {

namespace {
constexpr LogCategory kLog{kLogSubsystem, "pacer"};
constexpr size_t kMaxVideoGroups = 5;
constexpr size_t kMaxAudioGroups = 4;
constexpr size_t kMostInABatch = 64;
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
  std::deque<FrameGroup> forgotten;
  {
    MutexLock lock(mutex_);
    forgotten = TakeAll();
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
  std::vector<FrameGroup> dropped;
  {
    MutexLock lock(mutex_);
    dropped = MakeRoom(group);
    const bool video = group.IsVideo();
    const uint64_t bytes = group.Bytes();
    queue_.push_back(std::move(group));
    ++QueuedGroups(video);
    queuedBytes_ += bytes;
  }
  condition_.NotifyOne();
  if (dropped.empty()) return;
  uint64_t droppedBytes = 0;
  for (const FrameGroup& one : dropped) droppedBytes += one.Bytes();
  ReportOverflow(droppedBytes);
}

std::vector<FrameGroup> Pacer::MakeRoom(const FrameGroup& group) {
  const bool video = group.IsVideo();
  const size_t limit = video ? kMaxVideoGroups : kMaxAudioGroups;
  std::vector<FrameGroup> dropped;
  while (QueuedGroups(video) >= limit && TakeOldestOf(video, dropped)) {
  }
  return dropped;
}

bool Pacer::TakeOldestOf(bool video, std::vector<FrameGroup>& out) {
  const auto oldest = std::find_if(queue_.begin(), queue_.end(), [video](const FrameGroup& group) {
    return group.IsVideo() == video;
  });
  if (oldest == queue_.end()) return false;
  out.push_back(std::move(*oldest));
  queue_.erase(oldest);
  queuedBytes_ -= out.back().Bytes();
  --QueuedGroups(video);
  ++totalDropped_;
  return true;
}

size_t& Pacer::QueuedGroups(bool video) { return video ? queuedVideoGroups_ : queuedAudioGroups_; }

std::deque<FrameGroup> Pacer::TakeAll() {
  queuedVideoGroups_ = 0;
  queuedAudioGroups_ = 0;
  queuedBytes_ = 0;
  return std::exchange(queue_, {});
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
  std::deque<FrameGroup> cleared;
  uint64_t bytes = 0;
  {
    MutexLock lock(mutex_);
    bytes = queuedBytes_;
    cleared = TakeAll();
  }
  if (!cleared.empty()) {
    PluginLog(kLog, kLogInfo, "Pacer queue cleared: %zu frame groups (%zu bytes) discarded",
              cleared.size(), size_t(bytes));
  }
}

// What one group throws costs that group.
void Pacer::Run() {
  FrameGroup group;
  while (TakeOldest(group)) {
    RunGuarded(kLog, "a frame group", [&] { Send(group); });
    group = {};  // its memory goes back here, not under the lock
  }
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
  batch_.clear();
  group.ForEach([&](std::span<const std::byte> datagram) {
    if (!Pace(datagram.size(), send)) return false;
    batch_.push_back(datagram);
    if (batch_.size() == kMostInABatch) SendBatch(send);
    return true;
  });
  if (running_) SendBatch(send);
}

void Pacer::SendBatch(const Sender& send) {
  if (batch_.empty()) return;
  const DatagramsTaken taken = send ? send(batch_) : DatagramsTaken{};
  totalBytes_ += taken.bytes;
  totalFailed_ += batch_.size() - taken.count;
  batch_.clear();
}

// Waits until `size` bytes may go; false if the pacer has stopped.
bool Pacer::Pace(size_t size, const Sender& send) {
  while (running_) {
    const int64_t wait = bucket_.TakeOrWait(size, bitrate_, clock_.NowNanos());
    if (wait == 0) return running_;
    SendBatch(send);
    clock_.SleepFor(wait);
  }
  return false;
}

}  // namespace Veldrift
