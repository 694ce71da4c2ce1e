#include "web_sound.h"

#include <algorithm>
#include <vector>

namespace Veldrift {

namespace {

constexpr int64_t kBitsAChannel = 96'000;
constexpr int kPatienceFraction = 25;  // of a second: blocks that come unevenly are no hole
constexpr int kJumpSeconds = 2;        // a longer silence isn't worth its bytes
constexpr int64_t kLargestFifo = 16'384;

}  // namespace

bool WebSound::Open(const SoundFormat& format) {
  const AVCodec* codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
  if (codec == nullptr || format.sampleRate <= 0 || format.channels <= 0) return false;
  encoder_.reset(avcodec_alloc_context3(codec));
  fifo_.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLTP, format.channels, int(kLargestFifo)));
  packet_.reset(av_packet_alloc());
  if (!encoder_ || !fifo_ || !packet_) return false;
  encoder_->sample_rate = format.sampleRate;
  encoder_->sample_fmt = AV_SAMPLE_FMT_FLTP;
  av_channel_layout_default(&encoder_->ch_layout, format.channels);
  encoder_->time_base = {1, format.sampleRate};
  encoder_->bit_rate = kBitsAChannel * format.channels;
  encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  AVDictionary* options = nullptr;
  av_dict_set(&options, "aac_coder", "fast", 0);
  const int code = avcodec_open2(encoder_.get(), codec, &options);
  av_dict_free(&options);
  format_ = format;
  return code >= 0;
}

void WebSound::BeginAt(int64_t time) {
  av_audio_fifo_reset(fifo_.get());
  have_ = next_ = time;
  jumpTo_ = time;
}

bool WebSound::Add(std::span<const float> samples, int64_t timeMicros) {
  const int64_t time = av_rescale(timeMicros, format_.sampleRate, 1'000'000);
  const int64_t tolerated = format_.sampleRate / kPatienceFraction;
  if (have_ < 0 || time - have_ > int64_t{kJumpSeconds} * format_.sampleRate) BeginAt(time);
  const int64_t missing = time - have_;
  if (missing > tolerated) PushSilence(missing);
  if (missing < -tolerated) {
    const size_t known = size_t(-missing) * size_t(format_.channels);
    samples = samples.subspan(std::min(samples.size(), known));
  }
  Push(samples);
  return missing >= -tolerated;
}

void WebSound::FillTo(int64_t timeMicros) {
  const int64_t time = av_rescale(timeMicros, format_.sampleRate, 1'000'000);
  if (have_ < 0 || time - have_ > int64_t{kJumpSeconds} * format_.sampleRate) BeginAt(time);
  if (time > have_) PushSilence(time - have_);
}

void WebSound::PushSilence(int64_t samples) {
  Push(std::vector<float>(size_t(samples) * size_t(format_.channels)));
}

void WebSound::Push(std::span<const float> samples) {
  const size_t channels = size_t(format_.channels);
  const size_t count = samples.size() / channels;
  std::vector<std::vector<float>> planes(channels, std::vector<float>(count));
  std::vector<void*> pointers;
  for (size_t channel = 0; channel < channels; ++channel) {
    for (size_t i = 0; i < count; ++i) planes[channel][i] = samples[i * channels + channel];
    pointers.push_back(planes[channel].data());
  }
  if (count > 0) av_audio_fifo_write(fifo_.get(), pointers.data(), int(count));
  have_ += int64_t(count);
  while (av_audio_fifo_size(fifo_.get()) >= encoder_->frame_size) EncodeNext();
}

void WebSound::EncodeNext() {
  const Picture block(av_frame_alloc());
  block->nb_samples = encoder_->frame_size;
  block->format = encoder_->sample_fmt;
  block->sample_rate = format_.sampleRate;
  av_channel_layout_copy(&block->ch_layout, &encoder_->ch_layout);
  if (av_frame_get_buffer(block.get(), 0) < 0) return;
  av_audio_fifo_read(fifo_.get(), reinterpret_cast<void**>(block->extended_data),
                     encoder_->frame_size);
  block->pts = next_;
  next_ += encoder_->frame_size;
  if (avcodec_send_frame(encoder_.get(), block.get()) >= 0) Drain();
}

void WebSound::Drain() {
  while (avcodec_receive_packet(encoder_.get(), packet_.get()) >= 0) {
    if (packet_->pts >= jumpTo_ - encoder_->frame_size && packet_->pts >= 0) {
      const int64_t samples = packet_->duration > 0 ? packet_->duration : encoder_->frame_size;
      sink_(packet_->pts, samples, std::as_bytes(std::span(packet_->data, size_t(packet_->size))));
    }
    av_packet_unref(packet_.get());
  }
}

}  // namespace Veldrift
