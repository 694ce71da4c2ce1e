// Decodes the video stream. Starts at a key frame, and again at the next one after frames are
// missing: pictures whose references were lost are nobody's measure of the stream.
//
// Threads: Decode and Flush belong to one worker thread; WantsKeyFrame may be asked from any.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "tools/av/av_handles.h"
#include "tools/receiver/whole_frame.h"

namespace Veldrift {

struct DecoderCounters {
  uint64_t decoded = 0;
  uint64_t skipped = 0;  // waited for a key frame
  uint64_t failed = 0;   // the decoder complained about a frame whose references were all there
  std::string firstFailure;
};

class VideoDecoder {
 public:
  // `frame` is the one that the picture came out of.
  using PictureSink = std::function<void(const AVFrame& picture, const WholeFrame& frame)>;

  explicit VideoDecoder(PictureSink sink);

  void Decode(const WholeFrame& frame);

  // True while pictures wait for a key frame that should be asked for.
  bool WantsKeyFrame() const { return wantsKeyFrame_; }

  const DecoderCounters& Counters() const { return counters_; }
  const char* CodecName() const;
  int Width() const { return width_; }
  int Height() const { return height_; }

 private:
  bool ReadyFor(const WholeFrame& frame);
  bool OpenFor(const WholeFrame& keyFrame);
  bool Submit(const WholeFrame& frame);
  void TakePictures(const WholeFrame& frame);
  void Fail(const WholeFrame& frame, const char* what, int code);

  const PictureSink sink_;
  CodecContext context_;
  Packet packet_;
  Picture picture_;
  AVCodecID codec_ = AV_CODEC_ID_NONE;
  int width_ = 0;
  int height_ = 0;
  std::optional<uint16_t> previous_;  // the frame decoded last
  uint32_t connection_ = 0;           // and what it came with
  std::atomic<bool> wantsKeyFrame_{true};
  DecoderCounters counters_;
};

}  // namespace Veldrift
