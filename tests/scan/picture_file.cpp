#include "tests/scan/picture_file.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

#include <memory>

namespace Veldrift {
namespace {

template <typename T, void (*Free)(T**)>
struct Freed {
  void operator()(T* object) const { Free(&object); }
};
using Input = std::unique_ptr<AVFormatContext, Freed<AVFormatContext, avformat_close_input>>;
using Decoder = std::unique_ptr<AVCodecContext, Freed<AVCodecContext, avcodec_free_context>>;
using Packet = std::unique_ptr<AVPacket, Freed<AVPacket, av_packet_free>>;
using Frame = std::unique_ptr<AVFrame, Freed<AVFrame, av_frame_free>>;

GrayPicture Gray(const AVFrame& frame) {
  GrayPicture picture{frame.width, frame.height, {}};
  picture.pixels.resize(size_t(frame.width) * size_t(frame.height));
  SwsContext* const scaler =
      sws_getContext(frame.width, frame.height, AVPixelFormat(frame.format), frame.width,
                     frame.height, AV_PIX_FMT_GRAY8, SWS_POINT, nullptr, nullptr, nullptr);
  uint8_t* const planes[] = {picture.pixels.data()};
  const int strides[] = {frame.width};
  sws_scale(scaler, frame.data, frame.linesize, 0, frame.height, planes, strides);
  sws_freeContext(scaler);
  return picture;
}

}  // namespace

std::optional<GrayPicture> ReadPicture(const std::filesystem::path& path) {
  AVFormatContext* opened = nullptr;
  if (avformat_open_input(&opened, path.c_str(), nullptr, nullptr) != 0) return std::nullopt;
  const Input input(opened);
  if (avformat_find_stream_info(opened, nullptr) < 0 || opened->nb_streams == 0) {
    return std::nullopt;
  }
  const AVCodecParameters& format = *opened->streams[0]->codecpar;
  const AVCodec* const codec = avcodec_find_decoder(format.codec_id);
  const Decoder decoder(codec != nullptr ? avcodec_alloc_context3(codec) : nullptr);
  const Packet packet(av_packet_alloc());
  const Frame frame(av_frame_alloc());
  if (!decoder || avcodec_parameters_to_context(decoder.get(), &format) < 0 ||
      avcodec_open2(decoder.get(), codec, nullptr) < 0 || av_read_frame(opened, packet.get()) < 0 ||
      avcodec_send_packet(decoder.get(), packet.get()) < 0) {
    return std::nullopt;
  }
  avcodec_send_packet(decoder.get(), nullptr);
  if (avcodec_receive_frame(decoder.get(), frame.get()) < 0) return std::nullopt;
  return Gray(*frame);
}

}  // namespace Veldrift
