// One stream of a media file, decoded picture by picture or block by block, and what becomes of it
// on a host's timeline.
//
// Threads: an object belongs to one thread at a time.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "media_source.h"
#include "tools/av/av_handles.h"

namespace Veldrift {

class StreamReader {
 public:
  // Whatever waits for the file ends once `interrupted`.
  explicit StreamReader(const std::atomic<bool>& interrupted) : interrupted_(interrupted) {}

  // False with a reason in `error`; with an empty one if the file has no such stream.
  bool Open(const std::string& file, AVMediaType type, std::string& error);

  // The next picture or block; null at the end.
  Picture Next();

  // Next gives something at or before `micros`, or the first there is.
  void Seek(int64_t micros);

  // Microseconds from the file's start; negative for what comes before it.
  int64_t TimeOf(const AVFrame& frame) const;

  // Microseconds; 0: unknown.
  int64_t Duration() const { return std::max<int64_t>(0, input_->duration); }

  AVRational FrameRate() const { return av_guess_frame_rate(input_.get(), stream_, nullptr); }
  // The shape of a pixel, width by height; 1 by 1 where the file doesn't say.
  AVRational PixelAspect(AVFrame& frame) const;
  // How the pictures are to be turned, nine numbers of 16.16; null: not at all.
  const int32_t* DisplayMatrix() const;
  const AVCodecContext& Codec() const { return *context_; }

 private:
  bool Feed();
  int64_t StartMicros() const;

  const std::atomic<bool>& interrupted_;
  InputFile input_;
  CodecContext context_;
  Packet packet_;
  AVStream* stream_ = nullptr;
  bool draining_ = false;
};

// Null with a reason in `error` if there is no video in the file that can be decoded. `note` is
// what a user should know of it.
std::unique_ptr<FrameSource> OpenFilePictures(const std::string& file, bool stamp,
                                              const std::atomic<bool>& interrupted,
                                              std::string& error, std::string& note);

// In up to two channels, at the file's own rate. Null if there is none that can be decoded.
std::unique_ptr<SoundSource> OpenFileSound(const std::string& file,
                                           const std::atomic<bool>& interrupted);

}  // namespace Veldrift
