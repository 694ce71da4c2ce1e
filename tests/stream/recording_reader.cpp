#include "tests/stream/recording_reader.h"

#include <algorithm>
#include <memory>

#include "platform/file.h"
#include "tools/av/av_handles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace Veldrift {

RecordingContents ReadRecording(const std::filesystem::path& path) {
  RecordingContents contents;
  AVFormatContext* opened = nullptr;
  if (avformat_open_input(&opened, PathText(path).c_str(), nullptr, nullptr) < 0) return contents;
  const auto close = [](AVFormatContext* context) { avformat_close_input(&context); };
  const std::unique_ptr<AVFormatContext, decltype(close)> input(opened, close);
  if (avformat_find_stream_info(input.get(), nullptr) < 0) return contents;
  contents.opened = true;

  const int video = av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  if (video >= 0) {
    const AVCodecParameters& parameters = *input->streams[video]->codecpar;
    contents.codec = avcodec_get_name(parameters.codec_id);
    contents.width = parameters.width;
    contents.height = parameters.height;
    contents.bt709Limited =
        parameters.color_space == AVCOL_SPC_BT709 && parameters.color_range == AVCOL_RANGE_MPEG;
  }
  AVPacket* const packet = av_packet_alloc();
  while (av_read_frame(input.get(), packet) >= 0) {
    const AVStream& stream = *input->streams[packet->stream_index];
    const double seconds = double(packet->pts) * av_q2d(stream.time_base);
    const bool isVideo = packet->stream_index == video;
    double& end = isVideo ? contents.videoSeconds : contents.audioSeconds;
    end = std::max(end, seconds);
    contents.videoPackets += isVideo ? 1 : 0;
    av_packet_unref(packet);
  }
  AVPacket* freed = packet;
  av_packet_free(&freed);
  return contents;
}

}  // namespace Veldrift
