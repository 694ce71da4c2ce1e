// One file of a recording: the video as it came, and the sound as the container takes it (floats,
// or AAC where the container has no floats). Always finalised by the destructor.
//
// Threads: belongs to one thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "key_frame_info.h"
#include "tools/av/av_handles.h"
#include "tools/receiver/whole_frame.h"

namespace Veldrift {

struct SoundFormat {
  int sampleRate = 0;
  int channels = 0;
  bool operator==(const SoundFormat&) const = default;
};

class RecordingFile {
 public:
  RecordingFile() = default;
  ~RecordingFile();
  RecordingFile(const RecordingFile&) = delete;
  RecordingFile& operator=(const RecordingFile&) = delete;

  // The streams that the file will have; at least one. False with a reason in `error`.
  bool Open(const std::filesystem::path& path, const std::optional<KeyFrameInfo>& video,
            const std::optional<SoundFormat>& sound, std::string& error);

  // Times are microseconds from the file's start.
  bool WriteVideo(const WholeFrame& frame, int64_t timeMicros);
  // Interleaved samples, to follow what was written before without a gap.
  bool WriteSound(std::span<const float> samples);
  // How much sound the file has, in samples a channel.
  int64_t SoundSamples() const { return soundTaken_; }

  // Writes what is held back and the file's index. False if anything couldn't be written.
  bool Close();

 private:
  bool AddVideo(const KeyFrameInfo& info);
  bool AddSound(const SoundFormat& format);
  bool EncodeChunk(int samples);
  bool DrainSound();
  bool Write(AVPacket& packet, AVStream& stream, AVRational timeBase);

  AVFormatContext* format_ = nullptr;
  bool headerWritten_ = false;
  bool failed_ = false;
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
