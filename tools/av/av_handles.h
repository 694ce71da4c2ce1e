// The libraries' objects as owners that release them.
#pragma once

#include <cstdint>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace Veldrift {

struct AvDelete {
  void operator()(AVCodecContext* p) const { avcodec_free_context(&p); }
  void operator()(AVCodecParserContext* p) const { av_parser_close(p); }
  void operator()(AVFrame* p) const { av_frame_free(&p); }
  void operator()(AVPacket* p) const { av_packet_free(&p); }
  void operator()(SwsContext* p) const { sws_freeContext(p); }
  void operator()(SwrContext* p) const { swr_free(&p); }
  void operator()(AVFormatContext* p) const { avformat_close_input(&p); }
  void operator()(AVAudioFifo* p) const { av_audio_fifo_free(p); }
};

using CodecContext = std::unique_ptr<AVCodecContext, AvDelete>;
using CodecParser = std::unique_ptr<AVCodecParserContext, AvDelete>;
using Picture = std::unique_ptr<AVFrame, AvDelete>;
using Packet = std::unique_ptr<AVPacket, AvDelete>;
using Scaler = std::unique_ptr<SwsContext, AvDelete>;
using Resampler = std::unique_ptr<SwrContext, AvDelete>;
using InputFile = std::unique_ptr<AVFormatContext, AvDelete>;  // opened for reading
using SoundFifo = std::unique_ptr<AVAudioFifo, AvDelete>;

}  // namespace Veldrift
