#include "recording_file.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
}

#include <cstring>
#include <vector>

#include "platform/file.h"

namespace Veldrift {

namespace {

constexpr AVRational kMicros{1, 1'000'000};
constexpr int kSamplesPerPacket = 1024;

std::string Reason(int code) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(code, text, sizeof text);
  return text;
}

// One channel's plane of a picture of sound, or all of them interleaved.
void Arrange(const std::vector<float>& interleaved, AVFrame& frame, int channels) {
  if (frame.format == AV_SAMPLE_FMT_FLT) {
    std::memcpy(frame.data[0], interleaved.data(), interleaved.size() * sizeof(float));
    return;
  }
  for (int channel = 0; channel < channels; ++channel) {
    auto* plane = reinterpret_cast<float*>(frame.extended_data[channel]);
    for (int i = 0; i < frame.nb_samples; ++i) {
      plane[i] = interleaved[size_t(i) * size_t(channels) + size_t(channel)];
    }
  }
}

}  // namespace

RecordingFile::~RecordingFile() {
  Close();
  if (format_ == nullptr) return;
  if (format_->pb != nullptr) avio_closep(&format_->pb);
  avformat_free_context(format_);
}

bool RecordingFile::AddVideo(const KeyFrameInfo& info) {
  video_ = avformat_new_stream(format_, nullptr);
  if (video_ == nullptr) return false;
  AVCodecParameters& parameters = *video_->codecpar;
  parameters.codec_type = AVMEDIA_TYPE_VIDEO;
  parameters.codec_id = info.codec;
  parameters.width = info.width;
  parameters.height = info.height;
  // The tag that players of the MP4 family expect for HEVC with its sets in the head.
  if (info.codec == AV_CODEC_ID_HEVC && std::strcmp(format_->oformat->name, "matroska") != 0) {
    parameters.codec_tag = MKTAG('h', 'v', 'c', '1');
  }
  const size_t size = info.parameterSets.size();
  parameters.extradata = static_cast<uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
  if (parameters.extradata == nullptr) return false;
  std::memcpy(parameters.extradata, info.parameterSets.data(), size);
  parameters.extradata_size = int(size);
  video_->time_base = kMicros;
  return true;
}

bool RecordingFile::AddSound(const SoundFormat& format) {
  const bool floats = std::strcmp(format_->oformat->name, "mp4") != 0;
  const AVCodec* codec = avcodec_find_encoder(floats ? AV_CODEC_ID_PCM_F32LE : AV_CODEC_ID_AAC);
  encoder_.reset(avcodec_alloc_context3(codec));
  if (!encoder_) return false;
  encoder_->sample_rate = format.sampleRate;
  encoder_->sample_fmt = codec->sample_fmts[0];
  av_channel_layout_default(&encoder_->ch_layout, format.channels);
  encoder_->time_base = {1, format.sampleRate};
  if (!floats) encoder_->bit_rate = int64_t{96'000} * format.channels;
  if ((format_->oformat->flags & AVFMT_GLOBALHEADER) != 0) {
    encoder_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  }
  if (avcodec_open2(encoder_.get(), codec, nullptr) < 0) return false;
  sound_ = avformat_new_stream(format_, nullptr);
  if (sound_ == nullptr) return false;
  sound_->time_base = encoder_->time_base;
  soundFormat_ = format;
  fifo_.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_FLT, format.channels, kSamplesPerPacket));
  return fifo_ && avcodec_parameters_from_context(sound_->codecpar, encoder_.get()) >= 0;
}

bool RecordingFile::Open(const std::filesystem::path& path,
                         const std::optional<KeyFrameInfo>& video,
                         const std::optional<SoundFormat>& sound, std::string& error) {
  const std::string name = PathText(path);
  packet_.reset(av_packet_alloc());
  int code = avformat_alloc_output_context2(&format_, nullptr, nullptr, name.c_str());
  if (code < 0) {
    error = "can't record to " + name + ": " + Reason(code);
    return false;
  }
  if ((video && !AddVideo(*video)) || (sound && !AddSound(*sound))) {
    error = "can't record this stream to " + name;
    return false;
  }
  code = avio_open(&format_->pb, name.c_str(), AVIO_FLAG_WRITE);
  if (code >= 0) code = avformat_write_header(format_, nullptr);
  if (code < 0) error = "can't write " + name + ": " + Reason(code);
  headerWritten_ = code >= 0;
  return headerWritten_;
}

bool RecordingFile::Write(AVPacket& packet, AVStream& stream, AVRational timeBase) {
  packet.stream_index = stream.index;
  av_packet_rescale_ts(&packet, timeBase, stream.time_base);
  if (av_interleaved_write_frame(format_, &packet) >= 0) return true;
  failed_ = true;
  return false;
}

bool RecordingFile::WriteVideo(const WholeFrame& frame, int64_t timeMicros) {
  if (video_ == nullptr || av_new_packet(packet_.get(), int(frame.data.size())) < 0) return false;
  std::memcpy(packet_->data, frame.data.data(), frame.data.size());
  if (frame.keyFrame) packet_->flags |= AV_PKT_FLAG_KEY;
  // Containers count in milliseconds or finer, and want each picture later than the one before.
  const int64_t step = av_rescale_q_rnd(1, video_->time_base, kMicros, AV_ROUND_UP);
  timeMicros = std::max(timeMicros, lastVideoMicros_ < 0 ? 0 : lastVideoMicros_ + step);
  lastVideoMicros_ = timeMicros;
  packet_->pts = packet_->dts = timeMicros;
  return Write(*packet_, *video_, kMicros);
}

bool RecordingFile::DrainSound() {
  while (avcodec_receive_packet(encoder_.get(), packet_.get()) >= 0) {
    if (!Write(*packet_, *sound_, encoder_->time_base)) return false;
  }
  return true;
}

bool RecordingFile::EncodeChunk(int samples) {
  const Picture frame(av_frame_alloc());
  frame->nb_samples = samples;
  frame->format = encoder_->sample_fmt;
  frame->sample_rate = soundFormat_.sampleRate;
  av_channel_layout_copy(&frame->ch_layout, &encoder_->ch_layout);
  if (av_frame_get_buffer(frame.get(), 0) < 0) return false;
  std::vector<float> interleaved(size_t(samples) * size_t(soundFormat_.channels));
  void* planes[] = {interleaved.data()};
  av_audio_fifo_read(fifo_.get(), planes, samples);
  Arrange(interleaved, *frame, soundFormat_.channels);
  frame->pts = soundEncoded_;
  soundEncoded_ += samples;
  return avcodec_send_frame(encoder_.get(), frame.get()) >= 0 && DrainSound();
}

bool RecordingFile::WriteSound(std::span<const float> samples) {
  if (sound_ == nullptr) return false;
  const int count = int(samples.size()) / soundFormat_.channels;
  void* planes[] = {const_cast<float*>(samples.data())};
  if (av_audio_fifo_write(fifo_.get(), planes, count) < count) return false;
  soundTaken_ += count;
  while (av_audio_fifo_size(fifo_.get()) >= kSamplesPerPacket) {
    if (!EncodeChunk(kSamplesPerPacket)) return false;
  }
  return true;
}

bool RecordingFile::Close() {
  if (!headerWritten_) return true;
  headerWritten_ = false;
  if (sound_ != nullptr) {
    const int rest = av_audio_fifo_size(fifo_.get());
    if (rest > 0 && !EncodeChunk(rest)) failed_ = true;
    avcodec_send_frame(encoder_.get(), nullptr);
    DrainSound();
  }
  if (av_write_trailer(format_) < 0) failed_ = true;
  return !failed_;
}

}  // namespace Veldrift
