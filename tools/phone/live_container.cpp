#include "live_container.h"

extern "C" {
#include <libavutil/mem.h>
}

#include <cstring>

namespace Veldrift {
namespace {

constexpr AVRational kMicros{1, 1'000'000};
constexpr int kOutputBuffer = 64 * 1024;

}  // namespace

// The parameter is const in newer versions of the library.
template <typename Byte>
int LiveContainer::TakeBytes(void* self, Byte* bytes, int size) {
  auto& container = *static_cast<LiveContainer*>(self);
  const auto data = std::as_bytes(std::span(bytes, size_t(size)));
  container.open_ = container.open_ && container.output_(data);
  return container.open_ ? size : AVERROR(EPIPE);
}

LiveContainer::~LiveContainer() {
  Close();
  if (format_ == nullptr) return;
  if (format_->pb != nullptr) av_freep(&format_->pb->buffer);
  avio_context_free(&format_->pb);
  avformat_free_context(format_);
}

bool LiveContainer::AddSound(const SoundFormat& format) {
  sound_ = avformat_new_stream(format_, nullptr);
  if (sound_ == nullptr) return false;
  AVCodecParameters& parameters = *sound_->codecpar;
  parameters.codec_type = AVMEDIA_TYPE_AUDIO;
  parameters.codec_id = AV_CODEC_ID_PCM_F32LE;
  parameters.sample_rate = format.sampleRate;
  parameters.bits_per_coded_sample = 32;
  av_channel_layout_default(&parameters.ch_layout, format.channels);
  sound_->time_base = kMicros;
  return true;
}

bool LiveContainer::OpenOutput() {
  auto* buffer = static_cast<uint8_t*>(av_malloc(kOutputBuffer));
  if (buffer == nullptr) return false;
  format_->pb = avio_alloc_context(buffer, kOutputBuffer, /*write_flag=*/1, this, nullptr,
                                   &TakeBytes, nullptr);
  if (format_->pb == nullptr) av_free(buffer);
  format_->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_FLUSH_PACKETS;
  return format_->pb != nullptr;
}

bool LiveContainer::Open(const KeyFrameInfo& video, const SoundFormat& sound) {
  packet_.reset(av_packet_alloc());
  const bool possible =
      packet_ && avformat_alloc_output_context2(&format_, nullptr, "matroska", nullptr) >= 0 &&
      (video_ = AddVideoStream(*format_, video)) != nullptr && AddSound(sound) && OpenOutput();
  if (!possible) return false;
  AVDictionary* options = nullptr;
  av_dict_set(&options, "live", "1", 0);
  headerWritten_ = avformat_write_header(format_, &options) >= 0;
  av_dict_free(&options);
  return headerWritten_ && open_;
}

bool LiveContainer::Write(AVStream& stream, std::span<const std::byte> data, int64_t timeMicros,
                          bool key) {
  if (av_new_packet(packet_.get(), int(data.size())) < 0) return open_;
  std::memcpy(packet_->data, data.data(), data.size());
  if (key) packet_->flags |= AV_PKT_FLAG_KEY;
  packet_->stream_index = stream.index;
  packet_->pts = packet_->dts = timeMicros;
  av_packet_rescale_ts(packet_.get(), kMicros, stream.time_base);
  av_write_frame(format_, packet_.get());
  av_packet_unref(packet_.get());
  av_write_frame(format_, nullptr);  // at once
  return open_;
}

bool LiveContainer::WriteVideo(const WholeFrame& frame, int64_t timeMicros) {
  return Write(*video_, frame.data, timeMicros, frame.keyFrame);
}

bool LiveContainer::WriteSound(std::span<const float> samples, int64_t timeMicros) {
  return Write(*sound_, std::as_bytes(samples), timeMicros, true);
}

void LiveContainer::Close() {
  if (headerWritten_ && open_) av_write_trailer(format_);
  headerWritten_ = false;
}

}  // namespace Veldrift
