// libavcodec's H.264 and HEVC encoders, as a hardware encoder is: a frame in, a frame out, no B
// frames, what the properties say acting on the next frame.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <cstdint>
#include <memory>
#include <vector>

#include "tests/transforms/module/bitstream.h"

namespace Veldrift::Transforms {

enum class RateMode : uint32_t { Constant = 0, PeakConstrained = 1, Quality = 3 };

struct Rates {
  RateMode mode = RateMode::Constant;
  uint32_t mean = 0;  // bits per second
  uint32_t peak = 0;
  uint32_t quality = 75;  // 0 to 100
  // Constant, of a codec that can't have one for a frame alone; -1: as the rate control finds.
  int qp = -1;

  bool operator==(const Rates&) const = default;
};

struct CodecSize {
  bool hevc = false;
  int width = 0;
  int height = 0;
  int fps = 30;
  // That code one picture; 0: one for a small picture, two for a large one. With more than one
  // libx265's rate control isn't the same twice.
  int threads = 0;
};

// NV12, packed at the width.
struct Picture {
  Bytes luma;
  Bytes chroma;
};

struct FrameOrder {
  bool keyFrame = false;
  int qp = -1;  // -1: as the rate control finds
};

struct CodedFrame {
  std::vector<Bytes> units;  // without parameter sets
  bool keyFrame = false;
  int64_t time = 0;
  int64_t duration = 0;
};

// Threads: one at a time.
class Codec {
 public:
  // Null: libavcodec didn't take it.
  static std::unique_ptr<Codec> Open(const CodecSize& size, const Rates& rates);

  // Whether these rates act without a new codec; if so they do from the next frame on.
  bool TakeRates(const Rates& rates);

  // False: libavcodec failed.
  bool Encode(const Picture& picture, const FrameOrder& order, CodedFrame& coded);

  const std::vector<Bytes>& Sets() const { return sets_; }
  const Rates& CurrentRates() const { return rates_; }

 private:
  struct FreeContext {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  };
  struct FreeFrame {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  };
  struct FreePacket {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  };

  Codec(const CodecSize& size, const Rates& rates) : size_(size), rates_(rates) {}
  void DescribeContext();
  void SetOptions();
  bool OpenContext();
  bool MakeFrame();
  void Fill(const Picture& picture);
  bool Order(const FrameOrder& order);

  const CodecSize size_;
  Rates rates_;
  std::unique_ptr<AVCodecContext, FreeContext> context_;
  std::unique_ptr<AVFrame, FreeFrame> frame_;
  std::unique_ptr<AVPacket, FreePacket> packet_;
  std::vector<Bytes> sets_;
  int64_t frames_ = 0;
};

}  // namespace Veldrift::Transforms
