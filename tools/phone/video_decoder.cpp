#include "video_decoder.h"

#include <cstring>
#include <utility>

#include "key_frame_info.h"

namespace Veldrift {

namespace {

constexpr int kDecoderThreads = 2;

}  // namespace

VideoDecoder::VideoDecoder(PictureSink sink)
    : sink_(std::move(sink)), packet_(av_packet_alloc()), picture_(av_frame_alloc()) {}

const char* VideoDecoder::CodecName() const {
  return codec_ == AV_CODEC_ID_NONE ? "none" : codec_ == AV_CODEC_ID_H264 ? "H.264" : "HEVC";
}

void VideoDecoder::Fail(const WholeFrame& frame, const char* what, int code) {
  ++counters_.failed;
  wantsKeyFrame_ = true;
  if (!counters_.firstFailure.empty()) return;
  char reason[AV_ERROR_MAX_STRING_SIZE] = "damaged picture";
  if (code < 0) av_strerror(code, reason, sizeof reason);
  counters_.firstFailure =
      "frame " + std::to_string(frame.frameNumber) + ": " + what + ": " + reason;
}

bool VideoDecoder::OpenFor(const WholeFrame& keyFrame) {
  const std::optional<KeyFrameInfo> info = InspectKeyFrame(keyFrame.data);
  if (!info) {
    Fail(keyFrame, "a key frame without parameter sets", AVERROR_INVALIDDATA);
    return false;
  }
  if (context_ && info->codec == codec_) return true;
  const AVCodec* codec = avcodec_find_decoder(info->codec);
  context_.reset(avcodec_alloc_context3(codec));
  if (!context_) return false;
  context_->flags |= AV_CODEC_FLAG_LOW_DELAY;
  context_->thread_type = FF_THREAD_SLICE;  // threads over pictures would hold some back
  context_->thread_count = kDecoderThreads;
  const int code = avcodec_open2(context_.get(), codec, nullptr);
  if (code < 0) {
    context_.reset();
    Fail(keyFrame, "can't open the decoder", code);
    return false;
  }
  codec_ = info->codec;
  return true;
}

bool VideoDecoder::ReadyFor(const WholeFrame& frame) {
  const bool gap = previous_ && uint16_t(*previous_ + 1) != frame.frameNumber;
  const bool isNew = frame.connection != connection_;
  if (gap || isNew) wantsKeyFrame_ = true;
  connection_ = frame.connection;
  previous_ = frame.frameNumber;
  if (frame.keyFrame) {
    if (!OpenFor(frame)) return false;
    wantsKeyFrame_ = false;
    return true;
  }
  if (wantsKeyFrame_) ++counters_.skipped;
  return !wantsKeyFrame_;
}

bool VideoDecoder::Submit(const WholeFrame& frame) {
  if (av_new_packet(packet_.get(), int(frame.data.size())) < 0) return false;
  std::memcpy(packet_->data, frame.data.data(), frame.data.size());
  if (frame.keyFrame) packet_->flags |= AV_PKT_FLAG_KEY;
  const int code = avcodec_send_packet(context_.get(), packet_.get());
  av_packet_unref(packet_.get());
  if (code < 0) Fail(frame, "can't be decoded", code);
  return code >= 0;
}

void VideoDecoder::TakePictures(const WholeFrame& frame) {
  while (avcodec_receive_frame(context_.get(), picture_.get()) >= 0) {
    const bool damaged =
        picture_->decode_error_flags != 0 || (picture_->flags & AV_FRAME_FLAG_CORRUPT) != 0;
    if (damaged) {
      Fail(frame, "decoded with errors", 0);
    } else {
      ++counters_.decoded;
      width_ = picture_->width;
      height_ = picture_->height;
      sink_(*picture_, frame);
    }
    av_frame_unref(picture_.get());
  }
}

void VideoDecoder::Decode(const WholeFrame& frame) {
  if (ReadyFor(frame) && Submit(frame)) TakePictures(frame);
}

}  // namespace Veldrift
