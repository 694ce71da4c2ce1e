// One file of a recording: the video as it came, and the sound as the container takes it (floats,
// or AAC where the container has no floats). Always finalised by the destructor. Matroska goes to
// the file as it comes, a fraction of a second behind: what is there plays, whatever becomes of
// this process.
//
// Threads: belongs to one thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "key_frame_info.h"
#include "tools/av/av_handles.h"
#include "tools/platform/posix/output_file.h"
#include "tools/receiver/sound_samples.h"
#include "tools/receiver/whole_frame.h"

namespace Veldrift {

class RecordingFile {
 public:
  RecordingFile() = default;
  ~RecordingFile();
  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;

  // The streams that the file will have; at least one. False with a sentence.
  bool Open(std::unique_ptr<OutputFile> file, const std::optional<KeyFrameInfo>& video,
            const std::optional<SoundFormat>& sound, std::string& sentence);

  // Times are microseconds from the file's start.
  bool WriteVideo(const WholeFrame& frame, int64_t timeMicros);
  // Interleaved samples, to follow what was written before without a gap.
  bool WriteSound(std::span<const float> samples);
  // Leaves so many samples a channel out of the time line.
  void SkipSound(int64_t samples);
  // How much sound the file has, in samples a channel.
  int64_t SoundSamples() const { return soundTaken_; }

  bool HasVideo() const { return video_ != nullptr; }
  bool HasSound() const { return sound_ != nullptr; }
  // The end of the last picture's or sample's time, whichever is later; a picture has none of its
  // own and ends where it begins.
  double Seconds() const;
  int64_t Bytes() const { return file_ ? file_->Size() : 0; }
  const std::filesystem::path& Path() const { return file_->Path(); }

  // Why the file isn't what it should be, as a sentence; empty: it is.
  std::string Failure() const;

  // Writes what is held back and the file's index. False if anything couldn't be written.
  bool Close();

 private:
  bool AddSound(const SoundFormat& format);
  bool EncodeChunk(int samples);
  bool DrainSound();
  bool Write(AVPacket& packet, AVStream& stream, AVRational timeBase);
  bool OpenOutput();
  bool WriteHead();
  bool Fail(int code);

  std::unique_ptr<OutputFile> file_;
  AVFormatContext* format_ = nullptr;
  bool headerWritten_ = false;
  std::string mediaError_;  // the media library's own
  AVStream* video_ = nullptr;
  AVStream* sound_ = nullptr;
  int64_t lastVideoMicros_ = -1;
  CodecContext encoder_;
  SoundFifo fifo_;
  SoundFormat soundFormat_;
  int64_t soundTaken_ = 0;
  int64_t soundEncoded_ = 0;
  Packet packet_;
};

}  // namespace Veldrift
