// Records what arrives: video as it came, sound as floats, both by the sender's time stamps. What
// no file can hold begins another one ("take-2.mkv"): another codec, size or sound format, sound
// where there was none, and another connection, whose times have nothing to do with those before.
//
// The sound in a file runs on without gaps, so it is kept in step with the time stamps: lost blocks
// become silence, and a drift between the sender's sound and its clock is taken out where it grows
// audible.
//
// Threads: belongs to one worker thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "recording_file.h"
#include "recording_series.h"
#include "tools/receiver/media_timeline.h"
#include "tools/receiver/whole_frame.h"

namespace Veldrift {

class Recorder {
 public:
  explicit Recorder(RecordingSeries& series) : series_(series) {}

  void Take(const SharedFrame& frame);

  // Finalises the file. False if anything couldn't be written; see Error.
  bool Close();

  // Why it can't go on, in one sentence; what was written until then is a whole file.
  const std::string& Error() const { return error_; }

  // Whether it can go on only with a key frame. From any thread.
  bool WantsKeyFrame() const { return wantsKeyFrame_; }

 private:
  struct Entry {
    SharedFrame frame;
    int64_t timeMicros;
  };

  void FollowConnection(uint32_t connection);
  void NoteFormats(const Entry& entry);
  void NoteSound(const WholeFrame& block);
  void NotePicture(const WholeFrame& keyFrame);
  void StartFile();
  void EndFile();
  void LookForFailure();
  void Write(const Entry& entry);
  void TakeSound(const Entry& entry);
  int64_t SoundMissingMicros() const;
  void WriteNextSound();
  bool ReadyToStart() const;
  void GiveUpPicture();
  bool BeginsFile(const Entry& entry) const;

  RecordingSeries& series_;
  uint32_t connection_ = 0;
  MediaTimeline timeline_;
  std::optional<KeyFrameInfo> video_;
  std::optional<SoundFormat> sound_;
  std::deque<Entry> waiting_;  // until both streams' formats are known
  std::unique_ptr<RecordingFile> file_;
  int64_t fileStartMicros_ = 0;
  std::deque<Entry> waitingSound_;  // of the file
  std::atomic<bool> wantsKeyFrame_{false};
  std::string error_;
};

}  // namespace Veldrift
