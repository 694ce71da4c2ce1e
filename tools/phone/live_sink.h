// What a session receives, live to a player that reads this program's standard output. It begins
// with a key frame. A player that is too slow loses everything up to the next one; one that goes
// ends the session, as it was meant.
//
// Threads: as FrameSink; a thread of its own writes.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "live_container.h"
#include "live_sound.h"
#include "platform/mutex.h"
#include "tools/platform/posix/output_pipe.h"
#include "tools/receiver/frame_sink.h"
#include "tools/receiver/media_timeline.h"

namespace Veldrift {

class LiveSink : public FrameSink {
 public:
  // `codec`: what was asked for, if anything was; it is waited for, for a while.
  LiveSink(std::unique_ptr<OutputPipe> pipe, std::optional<AVCodecID> codec);
  ~LiveSink() override { Finish(); }

  void Take(const SharedFrame& frame) override;
  bool WantsKeyFrame() const override { return wantsKeyFrame_; }
  std::string Failure() const override;
  bool Done() const override { return done_; }
  void Finish() override;

  // Frames for which the player was too slow.
  size_t LeftOut() const;

 private:
  struct Entry {
    SharedFrame frame;
    int64_t timeMicros;
  };

  void Run();
  // False at the end. Null if something is due that needs no frame.
  bool Next(SharedFrame& frame);
  void Write(const SharedFrame& frame);
  void FollowConnection(const WholeFrame& frame);
  // Its time in the output, in which pauses are left out.
  int64_t Place(const WholeFrame& frame);
  void NoteKeyFrame(const WholeFrame& frame);
  bool BeginDue() const;
  void Begin();
  void Repeat(Entry entry);
  void WritePicture(const Entry& entry);
  void WriteEntry(const Entry& entry);
  void Stop(std::string failure);
  void AskAgainAtTheStart(int64_t nowNs);

  const std::unique_ptr<OutputPipe> pipe_;
  const std::optional<AVCodecID> wanted_;
  std::atomic<bool> wantsKeyFrame_{true};
  std::atomic<bool> done_{false};

  mutable Mutex mutex_;
  CondVar changed_;
  std::deque<SharedFrame> queue_ VD_GUARDED_BY(mutex_);
  bool toNextKeyFrame_ VD_GUARDED_BY(mutex_) = false;
  bool finishing_ VD_GUARDED_BY(mutex_) = false;
  bool ended_ VD_GUARDED_BY(mutex_) = false;  // the writing thread has
  size_t leftOut_ VD_GUARDED_BY(mutex_) = 0;
  std::string failure_ VD_GUARDED_BY(mutex_);

  // The writing thread's.
  uint32_t connection_ = 0;
  MediaTimeline timeline_;
  int64_t shiftMicros_ = 0;  // from the timeline to the output's time
  int64_t lastMicros_ = 0;
  std::deque<Entry> waiting_;  // until it begins
  std::optional<KeyFrameInfo> video_;
  std::optional<SoundFormat> sound_;
  std::unique_ptr<LiveContainer> container_;
  std::unique_ptr<LiveSound> track_;
  bool references_ = false;  // the last pictures of this connection went out
  int64_t lastVideoMicros_ = -1;
  int64_t firstNs_ = 0;  // anything came
  int64_t beginNs_ = 0;
  int asked_ = 0;
  std::thread thread_;
};

}  // namespace Veldrift
