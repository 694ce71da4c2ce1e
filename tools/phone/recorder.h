// Records what arrives: video as it came, sound as floats, both by the sender's time stamps. A
// change of codec, size or sound format, which no file can hold, begins another file
// ("take-2.mkv").
//
// The sound in a file runs on without gaps, so it is kept in step with the time stamps: lost blocks
// become silence, and a drift between the sender's sound and its clock is taken out where it grows
// audible.
//
// Threads: belongs to one worker thread.
#pragma once

#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "recording_file.h"
#include "tools/receiver/media_timeline.h"
#include "tools/receiver/whole_frame.h"

namespace Veldrift {

class Recorder {
 public:
  explicit Recorder(std::filesystem::path path) : path_(std::move(path)) {}

  void Take(const std::shared_ptr<const WholeFrame>& frame);

  // Finalises the file. False if anything couldn't be written; see Error.
  bool Close();

  const std::string& Error() const { return error_; }
  int Files() const { return files_; }
  double Seconds() const { return double(lengthMicros_) / 1e6; }

 private:
  struct Entry {
    std::shared_ptr<const WholeFrame> frame;
    int64_t timeMicros;
  };

  void NoteFormats(const Entry& entry);
  void StartFile();
  void EndFile();
  void Write(const Entry& entry);
  void TakeSound(const Entry& entry);
  int64_t SoundMissingMicros() const;
  void WriteNextSound();
  std::filesystem::path NextPath() const;
  bool ReadyToStart() const;

  const std::filesystem::path path_;
  MediaTimeline timeline_;
  std::optional<KeyFrameInfo> video_;
  std::optional<SoundFormat> sound_;
  std::deque<Entry> waiting_;  // until both streams' formats are known
  std::unique_ptr<RecordingFile> file_;
  int64_t fileStartMicros_ = 0;
  std::deque<Entry> waitingSound_;  // of the file
  int files_ = 0;
  int64_t lengthMicros_ = 0;
  bool failed_ = false;
  std::string error_;
};

}  // namespace Veldrift
