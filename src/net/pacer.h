// Between framing and the socket: a queue of whole frames, and one thread that releases their
// datagrams at a set rate. When it falls behind, whole frames go, oldest first; a frame is sent
// entire or not at all, but for the one that Stop interrupts.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <span>
#include <thread>
#include <vector>

#include "net/frame_group.h"
#include "net/token_bucket.h"
#include "platform/mutex.h"
#include "support/clock.h"

namespace Veldrift {

// Threads: encoder output and audio threads enqueue, the worker sends, any thread sets the rate.
// Start and Stop come from one thread at a time. No lock is held while pacing, sending, or freeing
// a group's memory.
class Pacer {
 public:
  // Tries each datagram once, in order, and answers what was taken; the others were refused.
  using Sender = std::function<DatagramsTaken(Datagrams)>;

  explicit Pacer(Clock& clock = SystemClock());
  ~Pacer();
  Pacer(const Pacer&) = delete;
  Pacer& operator=(const Pacer&) = delete;

  // Starts the worker; does nothing, and drops the senders, if it runs already.
  void Start(Sender sendVideo, Sender sendAudio);
  // Drops the queue, joins the worker, lets go of the senders. May be started again.
  void Stop();

  // Takes the group, which is left empty; an empty one is ignored. A full queue (5 video groups,
  // 4 audio groups) loses its oldest group of the same kind, which the group itself tells.
  void Enqueue(FrameGroup&& group);

  // From the next datagram on.
  void SetBitrate(uint32_t bitsPerSecond) { bitrate_ = bitsPerSecond; }

  // Drops what is queued, without counting it as dropped; the group in hand goes on to its end.
  void ClearQueue();

  uint64_t TotalDropped() const { return totalDropped_; }  // groups
  uint64_t TotalFailed() const { return totalFailed_; }    // datagrams refused by the sender
  uint64_t TotalBytes() const { return totalBytes_; }      // bytes taken by the sender

 private:
  // Takes out what has to go for `group` to come in.
  std::vector<FrameGroup> MakeRoom(const FrameGroup& group) VD_REQUIRES(mutex_);
  bool TakeOldestOf(bool video, std::vector<FrameGroup>& out) VD_REQUIRES(mutex_);
  size_t& QueuedGroups(bool video) VD_REQUIRES(mutex_);
  std::deque<FrameGroup> TakeAll() VD_REQUIRES(mutex_);
  void ReportOverflow(uint64_t droppedBytes);
  void Run();
  bool TakeOldest(FrameGroup& group);
  void Send(const FrameGroup& group);
  void SendBatch(const Sender& send);
  bool Pace(size_t size, const Sender& send);

  Clock& clock_;
  std::thread worker_;
  std::atomic<bool> running_{false};
  std::atomic<uint32_t> bitrate_{15'000'000};

  Mutex mutex_;
  CondVar condition_;
  std::deque<FrameGroup> queue_ VD_GUARDED_BY(mutex_);
  size_t queuedVideoGroups_ VD_GUARDED_BY(mutex_) = 0;
  size_t queuedAudioGroups_ VD_GUARDED_BY(mutex_) = 0;
  std::atomic<uint64_t> queuedBytes_{0};  // changed under mutex_, read anywhere

  Sender sendVideo_, sendAudio_;  // set before the worker starts, cleared behind its join
  TokenBucket bucket_;            // worker only
  // Worker only: what the bucket has let go and is not sent yet. It goes out in one piece, before
  // the next wait.
  std::vector<std::span<const std::byte>> batch_;

  std::atomic<uint64_t> totalDropped_{0}, totalFailed_{0}, totalBytes_{0};
  std::atomic<uint64_t> droppedSinceLog_{0}, droppedBytesSinceLog_{0};
  std::atomic<int64_t> lastOverflowLogNanos_{0};
};

}  // namespace Veldrift
