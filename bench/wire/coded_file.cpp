#include "bench/wire/coded_file.h"

#include <algorithm>
#include <memory>
#include <random>

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

void CodedFile::Generate(double mbitsPerSecond, double fps) {
  std::mt19937 random(1);
  const size_t count = std::max<size_t>(1, size_t(fps));
  const double usual = mbitsPerSecond * 1e6 / 8 / double(count + 3);
  std::uniform_real_distribution<double> share(0.75, 1.25);
  for (size_t i = 0; i < count; ++i) {
    const double size = usual * (i == 0 ? 4 : share(random));
    units_.push_back({std::vector<uint8_t>(std::max<size_t>(1, size_t(size)), 0x42), i == 0});
  }
}

}  // namespace Veldrift
