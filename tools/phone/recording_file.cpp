#include "recording_file.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

#include "platform/file.h"

namespace Veldrift {

namespace {

constexpr AVRational kMicros{1, 1'000'000};
constexpr int kSamplesPerPacket = 1024;
constexpr int kOutputBuffer = 64 * 1024;
// What stands in memory: the cluster that is being filled, and what waits for the other stream.
constexpr const char* kClusterMillis = "500";
constexpr const char* kClusterBytes = "1000000";
constexpr int64_t kInterleaveMicros = 1'000'000;
// Space for the end: what is in memory, and an index that grows with the time.
constexpr int64_t kEndBytes = 4 << 20;
constexpr int64_t kIndexBytesPerSecond = 4096;
constexpr int64_t kIndexStepSeconds = 60;

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

// The parameter is const in newer versions of the library.
template <typename Byte>
int WriteBytes(void* file, Byte* bytes, int size) {
  static_cast<OutputFile*>(file)->Write(std::as_bytes(std::span(bytes, size_t(size))));
  return size;  // a failure is the file's to tell: the library would stop in the middle
}

int64_t SeekBytes(void* opaque, int64_t offset, int whence) {
  OutputFile& file = *static_cast<OutputFile*>(opaque);
  switch (whence) {
    case AVSEEK_SIZE:
      return file.Size();
    case SEEK_SET:
      return file.Seek(offset);
    case SEEK_CUR:
      return file.Seek(file.Place() + offset);
    case SEEK_END:
      return file.Seek(file.Size() + offset);
    default:
      return AVERROR(EINVAL);
  }
}

bool IsMatroska(const AVFormatContext& format) {
  return std::strcmp(format.oformat->name, "matroska") == 0;
}

}  // namespace

RecordingFile::~RecordingFile() {
  Close();
  if (format_ == nullptr) return;
  if (format_->pb != nullptr) av_freep(&format_->pb->buffer);
  avio_context_free(&format_->pb);
  avformat_free_context(format_);
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

bool RecordingFile::OpenOutput() {
  auto* buffer = static_cast<uint8_t*>(av_malloc(kOutputBuffer));
  if (buffer == nullptr) return false;
  format_->pb = avio_alloc_context(buffer, kOutputBuffer, /*write_flag=*/1, file_.get(), nullptr,
                                   &WriteBytes, &SeekBytes);
  if (format_->pb == nullptr) av_free(buffer);
  format_->flags |= AVFMT_FLAG_CUSTOM_IO | AVFMT_FLAG_FLUSH_PACKETS;
  format_->max_interleave_delta = kInterleaveMicros;
  return format_->pb != nullptr;
}

bool RecordingFile::WriteHead() {
  AVDictionary* options = nullptr;
  if (IsMatroska(*format_)) {
    av_dict_set(&options, "cluster_time_limit", kClusterMillis, 0);
    av_dict_set(&options, "cluster_size_limit", kClusterBytes, 0);
  }
  const int code = avformat_write_header(format_, &options);
  av_dict_free(&options);
  headerWritten_ = code >= 0;
  return Fail(code);
}

bool RecordingFile::Open(std::unique_ptr<OutputFile> file, const std::optional<KeyFrameInfo>& video,
                         const std::optional<SoundFormat>& sound, std::string& sentence) {
  file_ = std::move(file);
  packet_.reset(av_packet_alloc());
  const std::string name = PathText(file_->Path());
  const bool possible =
      Fail(avformat_alloc_output_context2(&format_, nullptr, nullptr, name.c_str())) &&
      (!video || (video_ = AddVideoStream(*format_, *video)) != nullptr) &&
      (!sound || AddSound(*sound)) && OpenOutput();
  if (!possible) {
    sentence = "can't record this stream to " + name;
    return false;
  }
  file_->SetAside(kEndBytes);
  if (!WriteHead() || !file_->Error().empty()) sentence = Failure();
  return sentence.empty();
}

// Answers whether it is no failure.
bool RecordingFile::Fail(int code) {
  if (code < 0 && mediaError_.empty()) mediaError_ = Reason(code);
  return code >= 0;
}

std::string RecordingFile::Failure() const {
  const std::string& reason = file_->Error().empty() ? mediaError_ : file_->Error();
  return reason.empty() ? "" : "can't write " + PathText(file_->Path()) + ": " + reason;
}

double RecordingFile::Seconds() const {
  const double video = double(std::max<int64_t>(lastVideoMicros_, 0)) / 1e6;
  const double sound =
      sound_ != nullptr ? double(soundTaken_) / double(soundFormat_.sampleRate) : 0;
  return std::max(video, sound);
}

bool RecordingFile::Write(AVPacket& packet, AVStream& stream, AVRational timeBase) {
  packet.stream_index = stream.index;
  av_packet_rescale_ts(&packet, timeBase, stream.time_base);
  const int64_t minutes = int64_t(Seconds()) / kIndexStepSeconds;
  file_->SetAside(kEndBytes + minutes * kIndexStepSeconds * kIndexBytesPerSecond);
  return Fail(av_interleaved_write_frame(format_, &packet)) && file_->Error().empty();
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
  bool good = true;
  while (avcodec_receive_packet(encoder_.get(), packet_.get()) >= 0) {
    good = Write(*packet_, *sound_, encoder_->time_base) && good;
  }
  return good;
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

void RecordingFile::SkipSound(int64_t samples) {
  const int rest = av_audio_fifo_size(fifo_.get());
  if (rest > 0) EncodeChunk(rest);
  soundTaken_ += samples;
  soundEncoded_ += samples;
}

bool RecordingFile::Close() {
  if (!headerWritten_) return true;
  headerWritten_ = false;
  if (sound_ != nullptr) {
    const int rest = av_audio_fifo_size(fifo_.get());
    if (rest > 0) EncodeChunk(rest);
    avcodec_send_frame(encoder_.get(), nullptr);
    DrainSound();
  }
  Fail(av_write_trailer(format_));
  return Failure().empty();
}

}  // namespace Veldrift
