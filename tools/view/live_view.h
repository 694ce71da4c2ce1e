// What a session receives, for a window: pictures kept until they are due, and sound that is played
// when it is. The window takes the pictures; closing it ends the session.
//
// Threads: Take as FrameSink; Show on the decoder's thread; the others on the window's.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "platform/mutex.h"
#include "tools/av/av_handles.h"
#include "tools/receiver/frame_sink.h"
#include "tools/receiver/media_timeline.h"
#include "tools/view/playout.h"
#include "tools/view/sdl_sound.h"

namespace Veldrift {

struct DuePicture {
  Picture picture;
  int64_t dueNs = 0;
  int64_t arrivedNs = 0;  // its first datagram
};

class LiveView : public FrameSink {
 public:
  LiveView() : player_(sound_) {}
  ~LiveView() override = default;

  // Before the first Take. False: `error` says why there is no sound.
  bool OpenSound(std::string& error) { return sound_.Open(error); }

  void Take(const SharedFrame& frame) override;
  // A picture that was decoded out of `frame`.
  void Show(const AVFrame& picture, const WholeFrame& frame);
  bool Done() const override { return done_; }
  void Finish() override {}

  // The newest picture that is due; older ones are gone with it.
  std::optional<DuePicture> Next(int64_t nowNs);
  // When the next one is due; nothing: none waits.
  std::optional<int64_t> NextDueNs() const;
  // How long what comes the fastest waits for the rest.
  int64_t WaitNs() const;
  // The user has had enough.
  void Close() { done_ = true; }

 private:
  // False: the frame is of a connection that is no more.
  bool FollowConnection(const WholeFrame& frame) VD_REQUIRES(mutex_);

  std::atomic<bool> done_{false};
  mutable Mutex mutex_;
  uint32_t connection_ VD_GUARDED_BY(mutex_) = 0;
  MediaTimeline timeline_ VD_GUARDED_BY(mutex_);
  Playout playout_ VD_GUARDED_BY(mutex_);
  std::deque<DuePicture> pictures_ VD_GUARDED_BY(mutex_);

  // The sound's thread's.
  SdlSound sound_;
  SoundPlayer player_;
  uint32_t soundConnection_ = 0;
};

}  // namespace Veldrift
