// What all viewers watch, each at a place of its own: fragments of one MP4 after the other. An
// epoch is one such file; what can't go on in it (another codec or size, a pause, another
// connection) begins the next.
//
// A viewer begins with a key frame: the newest, if it has just come or if nothing comes behind it,
// else the next, which is wished for. One that is too slow is ended and may begin anew; nobody
// waits for it.
//
// Threads: any. One thread a viewer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "platform/mutex.h"
#include "support/clock.h"
#include "web_mp4.h"

namespace Veldrift {

// The same file for those who hear and for those who don't.
struct WebEpoch {
  ByteVector init, silentInit;
  std::string codecs, silentCodecs;  // as media types have them
};

class WebBroadcast {
 public:
  class Viewer;

  explicit WebBroadcast(Clock& clock) : clock_(clock) {}

  void Begin(WebEpoch epoch);
  // Not taken before the first epoch.
  void Push(WebFragment fragment);
  // Ends all viewers; no more begin.
  void Stop();

  // Whether somebody waits for a key frame.
  bool KeyFrameWanted() const;
  size_t ViewerCount() const;

  // Waits for a stream to begin, at most so long. Null: none did.
  std::unique_ptr<Viewer> Watch(bool sound, int64_t patienceNs);

  static constexpr size_t kMostBytes = size_t{24} << 20;  // kept
  static constexpr int64_t kFreshNs = 500 * kNanosPerMilli;
  static constexpr int64_t kSilenceNs = 300 * kNanosPerMilli;
  // How long a fragment may lie before a viewer takes it.
  static constexpr int64_t kMostBehindNs = kNanosPerSecond;
  // How long a viewer hears nothing at most.
  static constexpr int64_t kIdleNs = kNanosPerSecond;

 private:
  struct Item {
    std::shared_ptr<const WebFragment> fragment;
    int64_t pushedNs = 0;
  };

  uint64_t EndNumber() const VD_REQUIRES(mutex_) { return firstNumber_ + items_.size(); }
  std::optional<uint64_t> Start(int64_t nowNs) const VD_REQUIRES(mutex_);

  Clock& clock_;
  mutable Mutex mutex_;
  CondVar changed_;
  bool stopped_ VD_GUARDED_BY(mutex_) = false;
  std::shared_ptr<const WebEpoch> epoch_ VD_GUARDED_BY(mutex_);
  std::deque<Item> items_ VD_GUARDED_BY(mutex_);  // of this epoch
  size_t bytes_ VD_GUARDED_BY(mutex_) = 0;
  uint64_t firstNumber_ VD_GUARDED_BY(mutex_) = 0;  // of items_
  std::optional<uint64_t> key_ VD_GUARDED_BY(mutex_);
  int64_t keyNs_ VD_GUARDED_BY(mutex_) = 0;
  int64_t pictureNs_ VD_GUARDED_BY(mutex_) = 0;  // the newest
  size_t viewers_ VD_GUARDED_BY(mutex_) = 0;
  size_t waiting_ VD_GUARDED_BY(mutex_) = 0;  // of them, for a key frame
};

// One who watches, until Read answers 0.
class WebBroadcast::Viewer {
 public:
  Viewer(WebBroadcast& broadcast, std::shared_ptr<const WebEpoch> epoch, bool sound);
  ~Viewer();
  Viewer(const Viewer&) = delete;
  Viewer& operator=(const Viewer&) = delete;

  // The media type's codecs.
  const std::string& Codecs() const;

  // Waits for bytes, at most kIdleNs: then they mean nothing. 0: it is over.
  size_t Read(std::span<std::byte> out);

 private:
  // The next piece to hand out. Nothing: it is over.
  std::optional<std::span<const std::byte>> Next();
  // Nothing: it isn't there yet.
  std::optional<Item> Take(int64_t nowNs) VD_REQUIRES(broadcast_.mutex_);
  bool Over(int64_t nowNs) const VD_REQUIRES(broadcast_.mutex_);
  void LookForStart(int64_t nowNs) VD_REQUIRES(broadcast_.mutex_);

  WebBroadcast& broadcast_;
  const std::shared_ptr<const WebEpoch> epoch_;
  const bool sound_;
  std::optional<uint64_t> next_;  // none: it waits for a key frame
  int64_t beganNs_ = 0;           // with this key frame
  std::shared_ptr<const WebFragment> held_;
  std::span<const std::byte> rest_;  // of what is being handed out
};

}  // namespace Veldrift
