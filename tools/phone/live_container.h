// A stream for players that show it as it comes: Matroska with the video as it arrived and the
// sound as floats, each packet handed on at once.
//
// Threads: belongs to one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include "key_frame_info.h"
#include "recording_file.h"
#include "tools/av/av_handles.h"
#include "tools/receiver/whole_frame.h"

namespace Veldrift {

class LiveContainer {
 public:
  // Takes the stream's bytes; false: nobody wants any more.
  using Output = std::function<bool(std::span<const std::byte>)>;

  explicit LiveContainer(Output output) : output_(std::move(output)) {}
  ~LiveContainer();
  LiveContainer(const LiveContainer&) = delete;
  LiveContainer& operator=(const LiveContainer&) = delete;

  // False if the output is closed, or the library can't.
  bool Open(const KeyFrameInfo& video, const SoundFormat& sound);

  // Times are microseconds from the stream's start, each stream's in order. False: the output is
  // closed.
  bool WriteVideo(const WholeFrame& frame, int64_t timeMicros);
  bool WriteSound(std::span<const float> samples, int64_t timeMicros);

  // Writes the stream's end.
  void Close();

 private:
  bool AddSound(const SoundFormat& format);
  bool OpenOutput();
  bool Write(AVStream& stream, std::span<const std::byte> data, int64_t timeMicros, bool key);
  template <typename Byte>
  static int TakeBytes(void* self, Byte* bytes, int size);

  const Output output_;
  AVFormatContext* format_ = nullptr;
  AVStream* video_ = nullptr;
  AVStream* sound_ = nullptr;
  bool headerWritten_ = false;
  bool open_ = true;
  Packet packet_;
};

}  // namespace Veldrift
