#include "stream_reader_av.h"

namespace Veldrift {

namespace {

std::string Reason(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

}  // namespace

bool StreamReader::Open(const std::string& file, AVMediaType type, std::string& error) {
  AVFormatContext* raw = nullptr;
  int code = avformat_open_input(&raw, file.c_str(), nullptr, nullptr);
  input_.reset(raw);
  if (code >= 0) code = avformat_find_stream_info(raw, nullptr);
  if (code < 0) {
    error = Reason(code);
    return false;
  }
  const AVCodec* codec = nullptr;
  const int index = av_find_best_stream(raw, type, -1, -1, &codec, 0);
  if (index < 0) return false;
  stream_ = raw->streams[index];
  context_.reset(avcodec_alloc_context3(codec));
  packet_.reset(av_packet_alloc());
  code = avcodec_parameters_to_context(context_.get(), stream_->codecpar);
  context_->thread_count = 0;
  if (code >= 0) code = avcodec_open2(context_.get(), codec, nullptr);
  if (code < 0) error = Reason(code);
  return code >= 0;
}

Picture StreamReader::Next() {
  Picture frame(av_frame_alloc());
  while (true) {
    const int code = avcodec_receive_frame(context_.get(), frame.get());
    if (code >= 0) return frame;
    if (code != AVERROR(EAGAIN) || !Feed()) return nullptr;
  }
}

void StreamReader::Rewind() {
  avcodec_flush_buffers(context_.get());
  const int64_t start = stream_->start_time == AV_NOPTS_VALUE ? 0 : stream_->start_time;
  av_seek_frame(input_.get(), stream_->index, start, AVSEEK_FLAG_BACKWARD);
  draining_ = false;
}

int64_t StreamReader::TimeOf(const AVFrame& frame) const {
  const int64_t pts = frame.best_effort_timestamp;
  if (pts == AV_NOPTS_VALUE) return 0;
  const int64_t start = input_->start_time == AV_NOPTS_VALUE ? 0 : input_->start_time;
  return av_rescale_q(pts, stream_->time_base, {1, AV_TIME_BASE}) - start;
}

// Hands the decoder something; false when there is nothing more.
bool StreamReader::Feed() {
  while (!draining_) {
    av_packet_unref(packet_.get());
    if (av_read_frame(input_.get(), packet_.get()) < 0) {
      draining_ = true;
      avcodec_send_packet(context_.get(), nullptr);
      return true;
    }
    if (packet_->stream_index != stream_->index) continue;
    // A damaged piece is left out, as players do it.
    if (avcodec_send_packet(context_.get(), packet_.get()) >= 0) return true;
  }
  return false;
}

}  // namespace Veldrift
