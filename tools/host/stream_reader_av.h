// One stream of a media file, decoded picture by picture or block by block.
//
// Threads: belongs to one thread at a time.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

#include "tools/av/av_handles.h"

namespace Veldrift {

class StreamReader {
 public:
  // False with a reason in `error`; with an empty one if the file has no such stream.
  bool Open(const std::string& file, AVMediaType type, std::string& error);

  // The next picture or block; null at the end.
  Picture Next();

  // Next gives the first one again.
  void Rewind();

  // Microseconds from the file's start.
  int64_t TimeOf(const AVFrame& frame) const;

  // Microseconds; 0: unknown.
  int64_t Duration() const { return std::max<int64_t>(0, input_->duration); }

  AVRational FrameRate() const { return av_guess_frame_rate(input_.get(), stream_, nullptr); }
  const AVCodecContext& Codec() const { return *context_; }

 private:
  bool Feed();

  InputFile input_;
  CodecContext context_;
  Packet packet_;
  AVStream* stream_ = nullptr;
  bool draining_ = false;
};

}  // namespace Veldrift
