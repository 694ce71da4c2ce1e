// A video file as the host's source: upright, with square pixels, and its sound where its time
// stamps say.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <optional>
#include <vector>

#include "platform/file.h"
#include "tests/support/scratch.h"
#include "tools/av/av_handles.h"
#include "tools/host/media_source.h"

extern "C" {
#include <libavutil/display.h>
}

namespace Veldrift {
namespace {

constexpr int kWidth = 96;
constexpr int kHeight = 64;
constexpr int kFps = 10;
constexpr int kRate = 8'000;
constexpr int kBlock = kRate / 10;

// Writes a film of a second: its left half is white. Its sound is loud in the tenths of a second
// that `tenths` names, and there is no sound in the file for the others.
class FilmWriter {
 public:
  FilmWriter(const std::filesystem::path& file, AVRational pixelAspect,
             std::optional<double> degrees, const std::vector<int>& tenths) {
    av_log_set_level(AV_LOG_FATAL);
    avformat_alloc_output_context2(&format_, nullptr, nullptr, PathText(file).c_str());
    video_ = AddStream(AV_CODEC_ID_FFV1, [&](AVCodecContext& codec) {
      codec.width = kWidth;
      codec.height = kHeight;
      codec.pix_fmt = AV_PIX_FMT_YUV420P;
      codec.time_base = {1, kFps};
      codec.framerate = {kFps, 1};
      codec.sample_aspect_ratio = pixelAspect;
    });
    format_->streams[0]->sample_aspect_ratio = pixelAspect;
    if (degrees) {
      auto* matrix = reinterpret_cast<int32_t*>(av_stream_new_side_data(
          format_->streams[0], AV_PKT_DATA_DISPLAYMATRIX, 9 * sizeof(int32_t)));
      av_display_rotation_set(matrix, *degrees);
    }
    sound_ = AddStream(AV_CODEC_ID_PCM_S16LE, [](AVCodecContext& codec) {
      codec.sample_rate = kRate;
      codec.sample_fmt = AV_SAMPLE_FMT_S16;
      codec.time_base = {1, kRate};
      av_channel_layout_default(&codec.ch_layout, 1);
    });
    avio_open(&format_->pb, PathText(file).c_str(), AVIO_FLAG_WRITE);
    EXPECT_GE(avformat_write_header(format_, nullptr), 0);
    for (int i = 0; i < kFps; ++i) WritePicture(i);
    for (const int tenth : tenths) WriteSound(tenth);
    av_write_trailer(format_);
    avio_closep(&format_->pb);
    avformat_free_context(format_);
  }

 private:
  CodecContext AddStream(AVCodecID id, const auto& shape) {
    const AVCodec* encoder = avcodec_find_encoder(id);
    CodecContext codec(avcodec_alloc_context3(encoder));
    shape(*codec);
    EXPECT_GE(avcodec_open2(codec.get(), encoder, nullptr), 0);
    AVStream* stream = avformat_new_stream(format_, nullptr);
    avcodec_parameters_from_context(stream->codecpar, codec.get());
    stream->time_base = codec->time_base;
    return codec;
  }

  void Write(AVCodecContext& codec, int index, AVFrame& frame) {
    EXPECT_GE(avcodec_send_frame(&codec, &frame), 0);
    const Packet packet(av_packet_alloc());
    while (avcodec_receive_packet(&codec, packet.get()) >= 0) {
      packet->stream_index = index;
      packet->duration = frame.nb_samples > 0 ? frame.nb_samples : 1;
      av_packet_rescale_ts(packet.get(), codec.time_base, format_->streams[index]->time_base);
      EXPECT_GE(av_interleaved_write_frame(format_, packet.get()), 0);
    }
  }

  void WritePicture(int number) {
    const Picture frame(av_frame_alloc());
    frame->width = kWidth;
    frame->height = kHeight;
    frame->format = AV_PIX_FMT_YUV420P;
    frame->pts = number;
    av_frame_get_buffer(frame.get(), 0);
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        frame->data[0][y * frame->linesize[0] + x] = x < kWidth / 2 ? 235 : 16;
        frame->data[1][y / 2 * frame->linesize[1] + x / 2] = 128;
        frame->data[2][y / 2 * frame->linesize[2] + x / 2] = 128;
      }
    }
    Write(*video_, 0, *frame);
  }

  void WriteSound(int tenth) {
    const Picture frame(av_frame_alloc());
    frame->nb_samples = kBlock;
    frame->format = AV_SAMPLE_FMT_S16;
    frame->sample_rate = kRate;
    av_channel_layout_default(&frame->ch_layout, 1);
    frame->pts = int64_t{tenth} * kBlock;
    av_frame_get_buffer(frame.get(), 0);
    std::fill_n(reinterpret_cast<int16_t*>(frame->data[0]), kBlock, int16_t{16'384});
    Write(*sound_, 1, *frame);
  }

  AVFormatContext* format_ = nullptr;
  CodecContext video_, sound_;
};

FileSources OpenFilm(const std::filesystem::path& file) {
  static const std::atomic<bool> interrupted{false};
  FileSources sources = OpenFileSources(file, false, interrupted);
  EXPECT_NE(sources.pictures, nullptr) << sources.error;
  return sources;
}

// Where the white half is in a picture of the file.
std::string WhiteSide(FrameSource& pictures, int64_t place) {
  const PictureFormat format = pictures.Format();
  std::vector<uint8_t> bgra(size_t(format.width) * size_t(format.height) * 4);
  if (!pictures.Paint(place, 0, bgra.data(), format.width * 4)) return "nothing";
  const auto white = [&](int x, int y) {
    return bgra[(size_t(y) * size_t(format.width) + size_t(x)) * 4] > 200;
  };
  const int right = format.width - 5, bottom = format.height - 5;
  const std::array corners = {white(4, 4), white(right, 4), white(4, bottom), white(right, bottom)};
  if (corners == std::array{true, false, true, false}) return "left";
  if (corners == std::array{false, true, false, true}) return "right";
  if (corners == std::array{true, true, false, false}) return "top";
  if (corners == std::array{false, false, true, true}) return "bottom";
  return "neither";
}

struct Turned {
  std::optional<double> degrees;  // clockwise, as av_display_rotation_set takes them
  AVRational aspect;
  int width, height;
  const char* white;
};

TEST(FileSource, PicturesStandUprightWithSquarePixels) {
  const ScratchFolder folder;
  int number = 0;
  for (const Turned& given :
       {Turned{{}, {1, 1}, 96, 64, "left"}, Turned{90.0, {1, 1}, 64, 96, "top"},
        Turned{-90.0, {1, 1}, 64, 96, "bottom"}, Turned{180.0, {1, 1}, 96, 64, "right"},
        Turned{{}, {4, 3}, 128, 64, "left"}, Turned{{}, {1, 2}, 96, 128, "left"},
        Turned{90.0, {4, 3}, 64, 128, "top"}}) {
    const auto file = folder.Path() / ("film-" + std::to_string(++number) + ".mov");
    FilmWriter(file, given.aspect, given.degrees, {0});
    const FileSources film = OpenFilm(file);
    const PictureFormat format = film.pictures->Format();
    EXPECT_EQ(format.width, given.width) << number;
    EXPECT_EQ(format.height, given.height) << number;
    EXPECT_EQ(WhiteSide(*film.pictures, 0), given.white) << number;
    // Forwards, back, and beyond the end, where it begins anew.
    for (const int64_t place : {7, 2, 1'234}) {
      EXPECT_EQ(WhiteSide(*film.pictures, place), given.white) << number << ": " << place;
    }
  }
}

// The loud tenths of a second, from `begin` on.
std::vector<int> LoudTenths(SoundSource& sound, int begin, int count) {
  std::vector<int> loud;
  std::vector<float> left(kBlock), right(kBlock);
  float* const channels[] = {left.data(), right.data()};
  sound.GoTo(int64_t{begin} * kBlock);
  for (int tenth = begin; tenth < begin + count; ++tenth) {
    sound.Next(channels, kBlock);
    const auto samples = std::count_if(left.begin(), left.end(), [](float s) { return s > 0.4F; });
    if (samples > kBlock / 2) loud.push_back(tenth);
  }
  return loud;
}

TEST(FileSource, SoundThatBeginsLateOrHasAGapStaysWhereItsTimeStampsSay) {
  const ScratchFolder folder;
  const auto file = folder.Path() / "film.mkv";
  FilmWriter(file, {1, 1}, {}, {3, 4, 7});
  const FileSources film = OpenFilm(file);
  ASSERT_NE(film.sound, nullptr);
  EXPECT_EQ(LoudTenths(*film.sound, 0, 10), (std::vector<int>{3, 4, 7}));
  EXPECT_EQ(LoudTenths(*film.sound, 4, 5), (std::vector<int>{4, 7})) << "behind a jump";
  EXPECT_EQ(LoudTenths(*film.sound, 8, 10), (std::vector<int>{13, 14, 17})) << "the next time";
}

TEST(FileSource, NothingIsReadOnceTheUserHasHadEnough) {
  const ScratchFolder folder;
  const auto file = folder.Path() / "film.mkv";
  FilmWriter(file, {1, 1}, {}, {0});
  const std::atomic<bool> interrupted{true};
  EXPECT_EQ(OpenFileSources(file, false, interrupted).pictures, nullptr);
}

}  // namespace
}  // namespace Veldrift
