// What a session receives, made into the broadcast on a thread of its own. See WebTrack.
//
// Threads: Take from the receiving threads, Finish from the owner's; the rest from any.
#pragma once

#include <string>

#include "frame_worker.h"
#include "platform/mutex.h"
#include "tools/receiver/frame_sink.h"
#include "web_track.h"

namespace Veldrift {

class WebSink : public FrameSink {
 public:
  WebSink(WebBroadcast& broadcast, Clock& clock);
  ~WebSink() override { Finish(); }

  void Take(const SharedFrame& frame) override { worker_.Push(frame); }
  bool WantsKeyFrame() const override;
  void Finish() override { worker_.Finish(); }

  void Tick();
  int64_t LineMicros() const;

 private:
  Clock& clock_;
  mutable Mutex mutex_;  // the broadcast's is taken inside
  WebTrack track_ VD_GUARDED_BY(mutex_);
  // Last: its thread ends before what it uses.
  FrameWorker worker_;
};

}  // namespace Veldrift
