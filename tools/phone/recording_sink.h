// Records what a session receives, on a thread of its own. See Recorder.
//
// Threads: Take from the receiving threads, Begin, Finish and Parts from the owner's; the rest from
// any.
#pragma once

#include <string>
#include <vector>

#include "frame_worker.h"
#include "platform/mutex.h"
#include "recorder.h"
#include "recording_series.h"
#include "tools/receiver/frame_sink.h"

namespace Veldrift {

class RecordingSink : public FrameSink {
 public:
  RecordingSink(const std::filesystem::path& path, bool overwrite);
  ~RecordingSink() override { Finish(); }

  // Makes the file. False with a sentence if that can't be.
  bool Begin(std::string& sentence);

  void Take(const SharedFrame& frame) override { worker_.Push(frame); }
  bool WantsKeyFrame() const override { return recorder_.WantsKeyFrame(); }
  std::string Failure() const override;
  void Finish() override;

  // After Finish: the files, in order.
  const std::vector<RecordedPart>& Parts() const { return series_.Parts(); }
  double Seconds() const { return series_.Seconds(); }
  // Frames for which this machine was too slow.
  size_t LeftOut() const { return worker_.LeftOut(); }

 private:
  void NoteFailure();

  RecordingSeries series_;
  Recorder recorder_;  // the worker's, and after its end the owner's
  bool finished_ = false;
  mutable Mutex mutex_;
  std::string failure_ VD_GUARDED_BY(mutex_);
  // Last: its thread ends before what it uses.
  FrameWorker worker_;
};

}  // namespace Veldrift
