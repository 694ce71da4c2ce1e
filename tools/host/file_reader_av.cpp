#include "file_reader_av.h"

#include "platform/file.h"

namespace Veldrift {

bool StreamReader::Open(const std::string& file, AVMediaType type, std::string& error) {
  AVFormatContext* raw = avformat_alloc_context();
  if (raw == nullptr) return false;
  raw->interrupt_callback = {
      [](void* flag) { return static_cast<const std::atomic<bool>*>(flag)->load() ? 1 : 0; },
      const_cast<std::atomic<bool>*>(&interrupted_)};
  int code = avformat_open_input(&raw, file.c_str(), nullptr, nullptr);  // frees it on failure
  input_.reset(raw);
  if (code >= 0) code = avformat_find_stream_info(raw, nullptr);
  if (code < 0) {
    error = AvErrorText(code);
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
  if (code < 0) error = AvErrorText(code);
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

int64_t StreamReader::StartMicros() const {
  return input_->start_time == AV_NOPTS_VALUE ? 0 : input_->start_time;
}

void StreamReader::Seek(int64_t micros) {
  avcodec_flush_buffers(context_.get());
  const int64_t target =
      av_rescale_q(StartMicros() + micros, {1, AV_TIME_BASE}, stream_->time_base);
  const int code = av_seek_frame(input_.get(), stream_->index, target, AVSEEK_FLAG_BACKWARD);
  // Before the stream's first picture there is nothing to go back to.
  if (code < 0) av_seek_frame(input_.get(), stream_->index, target, 0);
  draining_ = false;
}

int64_t StreamReader::TimeOf(const AVFrame& frame) const {
  const int64_t pts = frame.best_effort_timestamp;
  if (pts == AV_NOPTS_VALUE) return 0;
  return av_rescale_q(pts, stream_->time_base, {1, AV_TIME_BASE}) - StartMicros();
}

AVRational StreamReader::PixelAspect(AVFrame& frame) const {
  const AVRational aspect = av_guess_sample_aspect_ratio(input_.get(), stream_, &frame);
  return aspect.num > 0 && aspect.den > 0 ? aspect : AVRational{1, 1};
}

const int32_t* StreamReader::DisplayMatrix() const {
  size_t size = 0;
  const uint8_t* data = av_stream_get_side_data(stream_, AV_PKT_DATA_DISPLAYMATRIX, &size);
  return size >= 9 * sizeof(int32_t) ? reinterpret_cast<const int32_t*>(data) : nullptr;
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

FileSources OpenFileSources(const std::filesystem::path& file, bool stamp,
                            const std::atomic<bool>& interrupted) {
  av_log_set_level(AV_LOG_FATAL);
  FileSources sources;
  const std::string name = PathText(file);
  sources.pictures = OpenFilePictures(name, stamp, interrupted, sources.error, sources.note);
  if (!sources.pictures) {
    sources.error = "can't read a video from " + name + ": " + sources.error;
    return sources;
  }
  sources.sound = OpenFileSound(name, interrupted);
  return sources;
}

}  // namespace Veldrift
