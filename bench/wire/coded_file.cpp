#include "bench/wire/coded_file.h"

#include <memory>

extern "C" {
#include <libavformat/avformat.h>
}

namespace Veldrift {

namespace {

struct CloseInput {
  void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct FreePacket {
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

}  // namespace

bool CodedFile::Open(const std::string& path, std::string& error) {
  AVFormatContext* opened = nullptr;
  if (avformat_open_input(&opened, path.c_str(), nullptr, nullptr) < 0) {
    error = path + " can't be opened as a video";
    return false;
  }
  const std::unique_ptr<AVFormatContext, CloseInput> input(opened);
  const int stream = avformat_find_stream_info(input.get(), nullptr) < 0
                         ? -1
                         : av_find_best_stream(input.get(), AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
  const std::unique_ptr<AVPacket, FreePacket> packet(av_packet_alloc());
  while (stream >= 0 && av_read_frame(input.get(), packet.get()) >= 0) {
    if (packet->stream_index == stream) {
      units_.push_back(
          {{packet->data, packet->data + packet->size}, (packet->flags & AV_PKT_FLAG_KEY) != 0});
    }
    av_packet_unref(packet.get());
  }
  if (units_.empty()) error = path + " holds no video";
  return !units_.empty();
}

}  // namespace Veldrift
