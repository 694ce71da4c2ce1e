#include "tests/judge/video_file.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "platform/file.h"
#include "tools/av/av_handles.h"
#include "tools/pattern/clapper.h"
#include "tools/pattern/pattern.h"

namespace Veldrift {

namespace {

constexpr double kPictureSeconds = 1.0 / 30;
constexpr double kQuietSeconds = 0.5;  // before a click

std::vector<uint8_t> ToBgra(const AVFrame& picture) {
  const Scaler scaler(sws_getContext(picture.width, picture.height, AVPixelFormat(picture.format),
                                     picture.width, picture.height, AV_PIX_FMT_BGRA,
                                     SWS_BILINEAR | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
  const int* matrix = sws_getCoefficients(SWS_CS_ITU709);
  sws_setColorspaceDetails(scaler.get(), matrix, 0, matrix, 1, 0, 1 << 16, 1 << 16);
  std::vector<uint8_t> bgra(size_t(picture.width) * size_t(picture.height) * 4);
  uint8_t* planes[] = {bgra.data()};
  const int strides[] = {picture.width * 4};
  sws_scale(scaler.get(), picture.data, picture.linesize, 0, picture.height, planes, strides);
  return bgra;
}

using Bgra = std::vector<uint8_t>;

// A clapper's flash is painted where one is seen: whether it is due then, the sound tells.
Bgra Painted(const AVFrame& picture, const PatternStamp& stamp) {
  const int stride = picture.width * 4;
  Bgra painted(size_t(stride) * size_t(picture.height));
  PaintPattern(painted.data(), picture.width, picture.height, stride, stamp);
  if (HasFlash(picture.data[0], picture.width, picture.height, picture.linesize[0])) {
    PaintFlash(painted.data(), picture.width, picture.height, stride);
  }
  return painted;
}

double MeanDifference(const Bgra& seen, const Bgra& painted) {
  double sum = 0;
  for (size_t i = 0; i < seen.size(); ++i) {
    if (i % 4 != 3) sum += std::abs(int(seen[i]) - int(painted[i]));
  }
  return sum / (double(seen.size()) * 3 / 4);
}

// An eighth by an eighth of a plane, and the mean in it.
struct Patch {
  int left, top, right, bottom;
};
constexpr int kPatches = 8;
Patch PatchAt(int column, int row, int width, int height) {
  return {column * width / kPatches, row * height / kPatches, (column + 1) * width / kPatches,
          (row + 1) * height / kPatches};
}
double MeanOf(const uint8_t* plane, ptrdiff_t stride, int step, const Patch& patch) {
  double sum = 0;
  for (int y = patch.top; y < patch.bottom; ++y) {
    for (int x = patch.left; x < patch.right; ++x) sum += plane[y * stride + ptrdiff_t{x} * step];
  }
  return sum / ((patch.right - patch.left) * (patch.bottom - patch.top));
}

// By how many levels the mean of a patch is off BT.709's, limited range, in luma or chroma: what
// coding loses is detail, and the colour of an area stays.
double WorstPatch(const AVFrame& picture, const Bgra& painted) {
  const ptrdiff_t stride = ptrdiff_t{picture.width} * 4;
  double worst = 0;
  for (int i = 0; i < kPatches * kPatches; ++i) {
    const Patch whole = PatchAt(i % kPatches, i / kPatches, picture.width, picture.height);
    const Patch half = PatchAt(i % kPatches, i / kPatches, picture.width / 2, picture.height / 2);
    const double blue = MeanOf(painted.data(), stride, 4, whole);
    const double green = MeanOf(painted.data() + 1, stride, 4, whole);
    const double red = MeanOf(painted.data() + 2, stride, 4, whole);
    const double luma = 0.2126 * red + 0.7152 * green + 0.0722 * blue;
    const double wanted[] = {16 + luma * 219 / 255, 128 + (blue - luma) / 1.8556 * 224 / 255,
                             128 + (red - luma) / 1.5748 * 224 / 255};
    for (int plane = 0; plane < 3; ++plane) {
      const double seen =
          MeanOf(picture.data[plane], picture.linesize[plane], 1, plane == 0 ? whole : half);
      worst = std::max(worst, std::abs(seen - wanted[plane]));
    }
  }
  return worst;
}

// Of the decoded luma from BT.709's of what was painted, limited range.
double LumaPsnr(const AVFrame& picture, const Bgra& painted) {
  double squares = 1e-3;
  for (int y = 0; y < picture.height; ++y) {
    const uint8_t* const row = picture.data[0] + ptrdiff_t{y} * picture.linesize[0];
    const uint8_t* pixel = painted.data() + size_t(y) * size_t(picture.width) * 4;
    for (int x = 0; x < picture.width; ++x, pixel += 4) {
      const double luma = 0.2126 * pixel[2] + 0.7152 * pixel[1] + 0.0722 * pixel[0];
      const double off = row[x] - (16 + luma * 219 / 255);
      squares += off * off;
    }
  }
  return 10 * std::log10(255.0 * 255.0 * picture.width * picture.height / squares);
}

// Reads one file into a VideoFile.
class Reading {
 public:
  explicit Reading(VideoFile& out) : out_(out) {}

  void Run(const std::filesystem::path& path) {
    AVFormatContext* opened = nullptr;
    if (avformat_open_input(&opened, path.c_str(), nullptr, nullptr) < 0) return Fail("no file");
    const InputFile file(opened);
    if (avformat_find_stream_info(file.get(), nullptr) < 0) return Fail("no streams");
    for (unsigned i = 0; i < file->nb_streams; ++i) decoders_.push_back(OpenDecoder(*file, i));
    const Packet packet(av_packet_alloc());
    while (av_read_frame(file.get(), packet.get()) >= 0) {
      Decode(*file, packet->stream_index, packet.get());
      av_packet_unref(packet.get());
    }
    for (int i = 0; i < int(decoders_.size()); ++i) Decode(*file, i, nullptr);
    if (samples_ > 0) out_.soundLevel = std::sqrt(squares_ / double(samples_));
  }

 private:
  void Fail(const char* what) {
    if (out_.error.empty()) out_.error = what;
  }

  CodecContext OpenDecoder(const AVFormatContext& file, unsigned index) {
    const AVCodecParameters& parameters = *file.streams[index]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters.codec_id);
    CodecContext context(avcodec_alloc_context3(codec));
    // A picture that is not all there must not pass.
    context->err_recognition = AV_EF_EXPLODE | AV_EF_CRCCHECK;
    if (avcodec_parameters_to_context(context.get(), &parameters) < 0 ||
        avcodec_open2(context.get(), codec, nullptr) < 0) {
      Fail("no decoder");
    }
    if (parameters.codec_type == AVMEDIA_TYPE_VIDEO) out_.codec = avcodec_get_name(codec->id);
    return context;
  }

  void Decode(const AVFormatContext& file, int index, const AVPacket* packet) {
    AVCodecContext* decoder = decoders_[size_t(index)].get();
    if (avcodec_send_packet(decoder, packet) < 0) Fail("a packet that can't be decoded");
    const Picture frame(av_frame_alloc());
    while (avcodec_receive_frame(decoder, frame.get()) >= 0) {
      if (decoder->codec_type == AVMEDIA_TYPE_VIDEO) {
        TakePicture(*frame, file.streams[index]->time_base);
      } else {
        TakeSound(*frame, file.streams[index]->time_base);
      }
    }
  }

  void TakePicture(const AVFrame& picture, AVRational timeBase) {
    if (picture.decode_error_flags != 0) Fail("a broken picture");
    const bool bt709 =
        picture.color_range == AVCOL_RANGE_MPEG && picture.colorspace == AVCOL_SPC_BT709 &&
        picture.color_primaries == AVCOL_PRI_BT709 && picture.color_trc == AVCOL_TRC_BT709;
    out_.saysBt709Limited = bt709 && (out_.pictures == 0 || out_.saysBt709Limited);
    out_.width = picture.width;
    out_.height = picture.height;
    ++out_.pictures;
    out_.times.push_back(double(picture.pts) * av_q2d(timeBase));
    out_.videoSeconds = double(picture.pts) * av_q2d(timeBase) + kPictureSeconds;
    const auto stamp =
        ReadStamp(picture.data[0], picture.width, picture.height, picture.linesize[0]);
    if (!stamp) return;
    NoteFlash(picture, double(picture.pts) * av_q2d(timeBase), stamp->frameNumber);
    out_.stamps.push_back(stamp->frameNumber);
    Compare(picture, *stamp);
  }

  void Compare(const AVFrame& picture, const PatternStamp& stamp) {
    const Bgra painted = Painted(picture, stamp);
    const Bgra seen = ToBgra(picture);
    out_.worstDifference = std::max(out_.worstDifference, MeanDifference(seen, painted));
    if (picture.format != AV_PIX_FMT_YUV420P) return Fail("pictures of an unknown kind");
    out_.worstPatch = std::max(out_.worstPatch, WorstPatch(picture, painted));
    out_.worstPsnr = std::min(out_.worstPsnr, LumaPsnr(picture, painted));
  }

  // Where the flash begins, unless the picture before it is missing.
  void NoteFlash(const AVFrame& picture, double seconds, uint32_t frameNumber) {
    const bool flash =
        HasFlash(picture.data[0], picture.width, picture.height, picture.linesize[0]);
    const bool began = flash && !flashed_ && frameNumber == lastNumber_ + 1;
    if (began) out_.flashes.push_back(seconds);
    flashed_ = flash;
    lastNumber_ = frameNumber;
  }

  void NoteClick(float sample, double seconds) {
    if (!IsClick(sample)) return;
    if (seconds - lastLoud_ > kQuietSeconds) out_.clicks.push_back(seconds);
    lastLoud_ = seconds;
  }

  void TakeSound(const AVFrame& sound, AVRational timeBase) {
    const double begin = double(sound.pts) * av_q2d(timeBase);
    out_.soundRate = sound.sample_rate;
    out_.soundChannels = sound.ch_layout.nb_channels;
    out_.soundSeconds += double(sound.nb_samples) / sound.sample_rate;
    if (sound.format != AV_SAMPLE_FMT_FLT) return Fail("sound that isn't floats");
    const auto* samples = reinterpret_cast<const float*>(sound.data[0]);
    const int count = sound.nb_samples * sound.ch_layout.nb_channels;
    for (int i = 0; i < count; ++i) {
      squares_ += double(samples[i]) * double(samples[i]);
      NoteClick(samples[i],
                begin + double(i / sound.ch_layout.nb_channels) / double(sound.sample_rate));
    }
    samples_ += count;
  }

  VideoFile& out_;
  std::vector<CodecContext> decoders_;
  double squares_ = 0;
  int64_t samples_ = 0;
  bool flashed_ = false;
  uint32_t lastNumber_ = 0;
  double lastLoud_ = -1;
};

}  // namespace

VideoFile ReadVideoFile(const std::filesystem::path& path) {
  av_log_set_level(AV_LOG_FATAL);
  VideoFile file;
  Reading(file).Run(path);
  return file;
}

// The recorder takes its first moments to see how far the sound is off.
Sync MeasureSync(const VideoFile& file) {
  constexpr double kSettled = 0.5, kEnd = 0.1;
  Sync sync;
  for (const double flash : file.flashes) {
    if (flash < kSettled || flash > file.soundSeconds - kEnd) continue;
    double nearest = 1;
    for (const double click : file.clicks) nearest = std::min(nearest, std::abs(click - flash));
    sync.worst = std::max(sync.worst, nearest);
    ++sync.flashes;
  }
  return sync;
}

std::vector<ImageSize> ReadPngs(const std::filesystem::path& folder) {
  std::vector<ImageSize> sizes;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() != ".png") continue;
    const VideoFile image = ReadVideoFile(entry.path());
    const bool good = image.error.empty() && image.codec == "png" && image.pictures == 1;
    sizes.push_back(good ? ImageSize{image.width, image.height} : ImageSize{});
  }
  return sizes;
}

}  // namespace Veldrift
