// A plug-in's pictures and sound, as they come out of the receiver, for tests of what becomes of
// them.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "net/media_datagram.h"
#include "tools/av/av_handles.h"
#include "tools/receiver/whole_frame.h"

namespace Veldrift {

inline constexpr int kSoundRate = 48'000;

// Grey pictures, each a little lighter than the one before; a key frame only where one is asked
// for.
class Coder {
 public:
  Coder(const char* name, int width, int height) : width_(width), height_(height) {
    av_log_set_level(AV_LOG_FATAL);
    const AVCodec* codec = avcodec_find_encoder_by_name(name);
    context_.reset(avcodec_alloc_context3(codec));
    context_->width = width;
    context_->height = height;
    context_->pix_fmt = AV_PIX_FMT_YUV420P;
    context_->time_base = {1, 30};
    context_->gop_size = 10'000;
    context_->max_b_frames = 0;
    context_->thread_count = 1;
    AVDictionary* options = nullptr;
    av_dict_set(&options, "tune", "zerolatency", 0);
    av_dict_set(&options, "preset", "ultrafast", 0);
    av_dict_set(&options, "forced-idr", "1", 0);
    av_dict_set(&options, "x265-params", "log-level=none:repeat-headers=1", 0);
    EXPECT_GE(avcodec_open2(context_.get(), codec, &options), 0);
    av_dict_free(&options);
  }

  WholeFrame Next(bool key) {
    const Picture picture(av_frame_alloc());
    picture->width = width_;
    picture->height = height_;
    picture->format = AV_PIX_FMT_YUV420P;
    av_frame_get_buffer(picture.get(), 0);
    for (int plane = 0; plane < 3; ++plane) {
      const int rows = plane == 0 ? height_ : height_ / 2;
      std::memset(picture->data[plane], plane == 0 ? int(60 + count_ % 120) : 128,
                  size_t(picture->linesize[plane]) * size_t(rows));
    }
    picture->pts = count_++;
    picture->pict_type = key ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    const Packet packet(av_packet_alloc());
    EXPECT_GE(avcodec_send_frame(context_.get(), picture.get()), 0);
    EXPECT_GE(avcodec_receive_packet(context_.get(), packet.get()), 0);
    WholeFrame frame;
    frame.connection = 1;
    frame.keyFrame = (packet->flags & AV_PKT_FLAG_KEY) != 0;
    const auto* bytes = reinterpret_cast<const std::byte*>(packet->data);
    frame.data.assign(bytes, bytes + packet->size);
    return frame;
  }

 private:
  const int width_, height_;
  CodecContext context_;
  int64_t count_ = 0;
};

// A tone of 440 Hz for so long, in two channels.
inline WholeFrame ToneBlock(int64_t fromMicros, int64_t micros, int rate = kSoundRate) {
  constexpr double kTurn = 6.283185307179586;
  const int64_t first = fromMicros * rate / 1'000'000;
  const int64_t last = (fromMicros + micros) * rate / 1'000'000;
  std::vector<float> samples;
  for (int64_t i = first; i < last; ++i) {
    const float value = float(0.5 * std::sin(kTurn * 440 * double(i) / rate));
    samples.insert(samples.end(), {value, value});
  }
  WholeFrame block;
  block.connection = 1;
  block.stream = StreamType::Audio;
  block.timestamp = uint32_t(fromMicros);
  block.data.resize(kAudioHeadBytes + samples.size() * sizeof(float));
  WriteAudioHead({uint32_t(rate), 2}, block.data.data());
  std::memcpy(block.data.data() + kAudioHeadBytes, samples.data(), samples.size() * sizeof(float));
  return block;
}

}  // namespace Veldrift
