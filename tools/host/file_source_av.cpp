#include <algorithm>
#include <cstring>
#include <deque>
#include <vector>

#include "frame_source.h"
#include "platform/file.h"
#include "support/clock.h"
#include "tools/av/av_handles.h"
#include "tools/pattern/pattern.h"

namespace Veldrift {

namespace {

constexpr int kSmallestHdHeight = 720;

std::string Reason(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

// One stream of a file, decoded picture by picture or block by block.
class StreamReader {
 public:
  // False with a reason in `error`; with an empty one if the file has no such stream.
  bool Open(const std::string& file, AVMediaType type, std::string& error) {
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

  // The next picture or block; null at the end.
  Picture Next() {
    Picture frame(av_frame_alloc());
    while (true) {
      const int code = avcodec_receive_frame(context_.get(), frame.get());
      if (code >= 0) return frame;
      if (code != AVERROR(EAGAIN) || !Feed()) return nullptr;
    }
  }

  void Rewind() {
    avcodec_flush_buffers(context_.get());
    const int64_t start = stream_->start_time == AV_NOPTS_VALUE ? 0 : stream_->start_time;
    av_seek_frame(input_.get(), stream_->index, start, AVSEEK_FLAG_BACKWARD);
    draining_ = false;
  }

  // Microseconds from the file's start.
  int64_t TimeOf(const AVFrame& frame) const {
    const int64_t pts = frame.best_effort_timestamp;
    if (pts == AV_NOPTS_VALUE) return 0;
    const int64_t start = input_->start_time == AV_NOPTS_VALUE ? 0 : input_->start_time;
    return av_rescale_q(pts, stream_->time_base, {1, AV_TIME_BASE}) - start;
  }

  // Microseconds; 0: unknown.
  int64_t Duration() const { return std::max<int64_t>(0, input_->duration); }

  AVRational FrameRate() const { return av_guess_frame_rate(input_.get(), stream_, nullptr); }
  const AVCodecContext& Codec() const { return *context_; }

 private:
  // Hands the decoder something; false when there is nothing more.
  bool Feed() {
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

  InputFile input_;
  CodecContext context_;
  Packet packet_;
  AVStream* stream_ = nullptr;
  bool draining_ = false;
};

// Decoded pictures to BGRA by the matrix and range that the file states, or that its size implies.
class BgraConverter {
 public:
  bool Convert(const AVFrame& picture, int width, int height, uint8_t* bgra, int rowBytes) {
    scaler_.reset(sws_getCachedContext(
        scaler_.release(), picture.width, picture.height, AVPixelFormat(picture.format), width,
        height, AV_PIX_FMT_BGRA, SWS_BILINEAR | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (!scaler_) return false;
    const bool hd = picture.height >= kSmallestHdHeight;
    const int matrix = picture.colorspace != AVCOL_SPC_UNSPECIFIED ? int(picture.colorspace)
                       : hd                                        ? SWS_CS_ITU709
                                                                   : SWS_CS_ITU601;
    const int full = picture.color_range == AVCOL_RANGE_JPEG ? 1 : 0;
    sws_setColorspaceDetails(scaler_.get(), sws_getCoefficients(matrix), full,
                             sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
    sws_scale(scaler_.get(), picture.data, picture.linesize, 0, picture.height, &bgra, &rowBytes);
    return true;
  }

 private:
  Scaler scaler_;
};

class FilePictures final : public FrameSource {
 public:
  explicit FilePictures(bool stamp) : stamp_(stamp) {}

  bool Open(const std::string& file, std::string& error) {
    if (!reader_.Open(file, AVMEDIA_TYPE_VIDEO, error)) {
      if (error.empty()) error = "there is no video in it";
      return false;
    }
    ahead_ = reader_.Next();
    if (!ahead_) {
      error = "its video can't be decoded";
      return false;
    }
    const AVRational rate = reader_.FrameRate();
    format_ = {ahead_->width, ahead_->height, TicksPerFrame(rate)};
    return true;
  }

  PictureFormat Format() const override { return format_; }

  bool Paint(uint32_t index, uint8_t* bgra, int rowBytes) override {
    AdvanceTo(
        int64_t(double(index) * double(format_.ticksPerFrame) * 1e6 / double(kTicksPerSecond)));
    const auto nowMicros = uint64_t(SteadyNanos() / kNanosPerMicro);
    if (!current_ ||
        !converter_.Convert(*current_, format_.width, format_.height, bgra, rowBytes)) {
      return false;
    }
    if (stamp_) {
      PaintStamp(bgra, format_.width, format_.height, rowBytes, {index, nowMicros});
    }
    return true;
  }

 private:
  static int64_t TicksPerFrame(AVRational rate) {
    if (rate.num <= 0 || rate.den <= 0) rate = {30, 1};
    return av_rescale(kTicksPerSecond, rate.den, rate.num);
  }

  int64_t FrameMicros() const {
    return int64_t(double(format_.ticksPerFrame) * 1e6 / double(kTicksPerSecond));
  }

  // Makes `current_` the last picture that begins at or before `micros`.
  void AdvanceTo(int64_t micros) {
    const int64_t tolerance = FrameMicros() / 2;  // a picture's time may be rounded either way
    while (true) {
      if (!ahead_ && !BeginAgain()) return;
      if (current_ && loopStart_ + reader_.TimeOf(*ahead_) > micros + tolerance) return;
      current_ = std::move(ahead_);
      ahead_ = reader_.Next();
    }
  }

  bool BeginAgain() {
    const int64_t last = current_ ? reader_.TimeOf(*current_) + FrameMicros() : FrameMicros();
    loopStart_ += std::max(reader_.Duration(), last);
    reader_.Rewind();
    ahead_ = reader_.Next();
    return ahead_ != nullptr;
  }

  const bool stamp_;
  StreamReader reader_;
  BgraConverter converter_;
  PictureFormat format_;
  Picture current_;
  Picture ahead_;
  int64_t loopStart_ = 0;  // microseconds of the timeline at which this round began
};

class FileSound final : public SoundSource {
 public:
  bool Open(const std::string& file) {
    std::string error;
    if (!reader_.Open(file, AVMEDIA_TYPE_AUDIO, error)) return false;
    const AVCodecContext& codec = reader_.Codec();
    format_ = {codec.sample_rate, codec.ch_layout.nb_channels == 1 ? 1 : 2};
    AVChannelLayout source = codec.ch_layout;
    AVChannelLayout layout;
    av_channel_layout_default(&layout, format_.channels);
    SwrContext* raw = nullptr;
    const int code = swr_alloc_set_opts2(&raw, &layout, AV_SAMPLE_FMT_FLTP, format_.sampleRate,
                                         &source, codec.sample_fmt, codec.sample_rate, 0, nullptr);
    resampler_.reset(raw);
    waiting_.resize(size_t(format_.channels));
    loopSamples_ = av_rescale(reader_.Duration(), format_.sampleRate, AV_TIME_BASE);
    return code >= 0 && swr_init(raw) >= 0 && loopSamples_ > 0;
  }

  HostSoundFormat Format() const override { return format_; }

  void Next(float* const* channels, uint32_t samples) override {
    for (uint32_t i = 0; i < samples; ++i) {
      if (waiting_[0].empty()) Refill();
      for (size_t channel = 0; channel < waiting_.size(); ++channel) {
        channels[channel][i] = waiting_[channel].empty() ? 0.0F : waiting_[channel].front();
        if (!waiting_[channel].empty()) waiting_[channel].pop_front();
      }
      // In step with the pictures, which begin again at the same length.
      if (++position_ == loopSamples_) BeginAgain();
    }
  }

 private:
  void BeginAgain() {
    position_ = 0;
    ended_ = false;
    for (auto& channel : waiting_) channel.clear();
    reader_.Rewind();
  }

  void Refill() {
    while (!ended_ && waiting_[0].empty()) {
      const Picture block = reader_.Next();
      ended_ = block == nullptr;
      if (block) Append(*block);
    }
  }

  void Append(const AVFrame& block) {
    const int room = swr_get_out_samples(resampler_.get(), block.nb_samples);
    std::vector<std::vector<float>> planes(waiting_.size(), std::vector<float>(size_t(room)));
    std::vector<uint8_t*> out;
    for (auto& plane : planes) out.push_back(reinterpret_cast<uint8_t*>(plane.data()));
    const int count =
        swr_convert(resampler_.get(), out.data(), room,
                    const_cast<const uint8_t**>(block.extended_data), block.nb_samples);
    for (size_t channel = 0; count > 0 && channel < waiting_.size(); ++channel) {
      waiting_[channel].insert(waiting_[channel].end(), planes[channel].begin(),
                               planes[channel].begin() + count);
    }
  }

  StreamReader reader_;
  Resampler resampler_;
  HostSoundFormat format_;
  std::vector<std::deque<float>> waiting_;
  int64_t position_ = 0;
  int64_t loopSamples_ = 0;
  bool ended_ = false;
};

}  // namespace

FileSources OpenFileSources(const std::filesystem::path& file, bool stamp) {
  av_log_set_level(AV_LOG_FATAL);
  FileSources sources;
  const std::string name = PathText(file);
  auto pictures = std::make_unique<FilePictures>(stamp);
  if (!pictures->Open(name, sources.error)) {
    sources.error = "can't read a video from " + name + ": " + sources.error;
    return sources;
  }
  sources.pictures = std::move(pictures);
  auto sound = std::make_unique<FileSound>();
  if (sound->Open(name)) sources.sound = std::move(sound);
  return sources;
}

}  // namespace Veldrift
