#include "watched_file.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace Veldrift {

namespace {

struct Cursor {
  const ByteVector& bytes;
  size_t at = 0;
};

int ReadBytes(void* opaque, uint8_t* out, int size) {
  auto& cursor = *static_cast<Cursor*>(opaque);
  const size_t count = std::min(size_t(size), cursor.bytes.size() - cursor.at);
  if (count == 0) return AVERROR_EOF;
  std::memcpy(out, cursor.bytes.data() + cursor.at, count);
  cursor.at += count;
  return int(count);
}

void NoteLevels(const AVFrame& block, WatchedStream& stream) {
  const size_t each = size_t(stream.sampleRate / 100);
  const auto* samples = reinterpret_cast<const float*>(block.extended_data[0]);
  for (int i = 0; i < block.nb_samples; ++i) {
    const size_t place = (stream.decoded + size_t(i)) / each;
    if (stream.levels.size() <= place) stream.levels.resize(place + 1);
    stream.levels[place] = std::max(stream.levels[place], std::abs(samples[i]));
  }
}

class Decoder {
 public:
  Decoder(const AVStream& from, WatchedFile& file, size_t index) : file_(file), index_(index) {
    const AVCodec* codec = avcodec_find_decoder(from.codecpar->codec_id);
    context_.reset(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(context_.get(), from.codecpar);
    Check(avcodec_open2(context_.get(), codec, nullptr));
  }

  void Decode(const AVPacket* packet) {
    WatchedStream& stream = file_.streams[index_];
    Check(avcodec_send_packet(context_.get(), packet));
    const Picture frame(av_frame_alloc());
    while (avcodec_receive_frame(context_.get(), frame.get()) >= 0) {
      if (frame->decode_error_flags != 0) file_.failure = "decoded with errors";
      if (stream.sampleRate > 0) {
        NoteLevels(*frame, stream);
        stream.decoded += size_t(frame->nb_samples);
      } else {
        ++stream.decoded;
      }
    }
  }

 private:
  void Check(int code) {
    if (code < 0 && file_.failure.empty()) file_.failure = "error " + std::to_string(code);
  }

  WatchedFile& file_;
  const size_t index_;
  CodecContext context_;
};

}  // namespace

WatchedFile ReadWatched(const ByteVector& bytes) {
  WatchedFile file;
  Cursor cursor{bytes};
  AVFormatContext* format = avformat_alloc_context();
  AVIOContext* io = avio_alloc_context(static_cast<unsigned char*>(av_malloc(4096)), 4096, 0,
                                       &cursor, ReadBytes, nullptr, nullptr);
  format->pb = io;
  if (avformat_open_input(&format, nullptr, nullptr, nullptr) >= 0) {
    const InputFile input(format);
    file.read = true;
    std::vector<Decoder> decoders;
    for (unsigned i = 0; i < format->nb_streams; ++i) {
      const AVCodecParameters& has = *format->streams[i]->codecpar;
      file.streams.push_back({has.codec_id,
                              has.width,
                              has.height,
                              has.sample_rate,
                              has.ch_layout.nb_channels,
                              {},
                              {},
                              0,
                              {}});
      decoders.emplace_back(*format->streams[i], file, i);
    }
    const Packet packet(av_packet_alloc());
    while (av_read_frame(format, packet.get()) >= 0) {
      const auto index = size_t(packet->stream_index);
      const double base = av_q2d(format->streams[index]->time_base);
      WatchedStream& stream = file.streams[index];
      stream.times.push_back(double(packet->pts) * base);
      stream.keys.push_back((packet->flags & AV_PKT_FLAG_KEY) != 0);
      decoders[index].Decode(packet.get());
      av_packet_unref(packet.get());
    }
    for (Decoder& decoder : decoders) decoder.Decode(nullptr);
  }
  av_freep(&io->buffer);
  avio_context_free(&io);
  return file;
}

}  // namespace Veldrift
