// The libraries' objects as owners that release them: the encoder's, and what only tools use.
#pragma once

#include <cstdint>
#include <memory>

#include "encoder/av/av_handles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

namespace Veldrift {

struct AvToolDeleter {
  void operator()(AVCodecParserContext* p) const { av_parser_close(p); }
  void operator()(SwsContext* p) const { sws_freeContext(p); }
  void operator()(SwrContext* p) const { swr_free(&p); }
  void operator()(AVFormatContext* p) const { avformat_close_input(&p); }
  void operator()(AVAudioFifo* p) const { av_audio_fifo_free(p); }
};

using CodecContext = AvContextPtr;
using Picture = AvFramePtr;
using Packet = AvPacketPtr;
using CodecParser = std::unique_ptr<AVCodecParserContext, AvToolDeleter>;
using Scaler = std::unique_ptr<SwsContext, AvToolDeleter>;
using Resampler = std::unique_ptr<SwrContext, AvToolDeleter>;
using InputFile = std::unique_ptr<AVFormatContext, AvToolDeleter>;  // opened for reading
using SoundFifo = std::unique_ptr<AVAudioFifo, AvToolDeleter>;

}  // namespace Veldrift
