// A judge of streams for the tests, which have no decoder of their own: libavcodec's.
extern "C" {
#include <libavcodec/avcodec.h>
}

#include <algorithm>
#include <vector>

#include "tests/transforms/common/decoded_picture.h"

namespace Veldrift::Transforms {
namespace {

class Decoder {
 public:
  Decoder(AVCodecID id, PictureSink sink, void* state)
      : context_(avcodec_alloc_context3(avcodec_find_decoder(id))),
        parser_(av_parser_init(id)),
        packet_(av_packet_alloc()),
        frame_(av_frame_alloc()),
        sink_(sink),
        state_(state) {
    context_->thread_count = 1;
    context_->err_recognition = AV_EF_EXPLODE;
  }
  ~Decoder() {
    av_frame_free(&frame_);
    av_packet_free(&packet_);
    av_parser_close(parser_);
    avcodec_free_context(&context_);
  }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  bool Open() { return avcodec_open2(context_, nullptr, nullptr) >= 0; }

  // The next access unit that the bytes complete; how many bytes it took.
  int Parse(const uint8_t* bytes, int size) {
    return av_parser_parse2(parser_, context_, &packet_->data, &packet_->size, bytes, size,
                            AV_NOPTS_VALUE, AV_NOPTS_VALUE, 0);
  }

  // The parsed unit, or the stream's end. False: refused.
  bool Decode(bool end) {
    if (!end && packet_->size == 0) return true;
    if (avcodec_send_packet(context_, end ? nullptr : packet_) < 0) return false;
    while (avcodec_receive_frame(context_, frame_) >= 0) Show();
    return true;
  }

  int Pictures() const { return pictures_; }

 private:
  void Show() {
    const bool bt709 =
        frame_->colorspace == AVCOL_SPC_BT709 && frame_->color_range == AVCOL_RANGE_MPEG;
    const DecodedPicture picture = {frame_->width,
                                    frame_->height,
                                    {frame_->data[0], frame_->data[1], frame_->data[2]},
                                    {frame_->linesize[0], frame_->linesize[1], frame_->linesize[2]},
                                    bt709,
                                    frame_->decode_error_flags != 0};
    ++pictures_;
    sink_(state_, &picture);
  }

  AVCodecContext* context_;
  AVCodecParserContext* parser_;
  AVPacket* packet_;
  AVFrame* frame_;
  const PictureSink sink_;
  void* const state_;
  int pictures_ = 0;
};

}  // namespace
}  // namespace Veldrift::Transforms

extern "C" int WINAPI VdDecode(int hevc, const uint8_t* annexB, size_t size,
                               Veldrift::Transforms::PictureSink sink, void* state) {
  Veldrift::Transforms::Decoder decoder(hevc ? AV_CODEC_ID_HEVC : AV_CODEC_ID_H264, sink, state);
  // What it complains of is said by the result.
  av_log_set_level(AV_LOG_FATAL);
  if (!decoder.Open()) return -1;
  std::vector<uint8_t> stream(annexB, annexB + size);
  stream.resize(size + AV_INPUT_BUFFER_PADDING_SIZE);  // the parser reads beyond the end
  bool good = true;
  for (size_t at = 0; at < size;) {
    at += static_cast<size_t>(decoder.Parse(stream.data() + at, static_cast<int>(size - at)));
    good = decoder.Decode(false) && good;
  }
  decoder.Parse(nullptr, 0);
  good = decoder.Decode(false) && good;
  good = decoder.Decode(true) && good;
  return good ? decoder.Pictures() : -1;
}
