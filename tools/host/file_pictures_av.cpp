#include <algorithm>
#include <array>
#include <cmath>
#include <utility>
#include <vector>

#include "file_reader_av.h"
#include "support/clock.h"
#include "tools/av/colour_matrix.h"
#include "tools/pattern/pattern.h"

namespace Veldrift {

namespace {

constexpr int kBytesPerPixel = 4;

// A turn by quarters, mirrored or not, as a display matrix says it: where a step to the right and
// a step down in the turned picture lead in the file's.
class Turn {
 public:
  // Anything that is no turn by quarters is left alone.
  explicit Turn(const int32_t* matrix) {
    if (matrix == nullptr) return;
    const std::array found = {Sign(matrix[0]), Sign(matrix[1]), Sign(matrix[3]), Sign(matrix[4])};
    const bool upright = found[0] != 0 && found[3] != 0 && found[1] == 0 && found[2] == 0;
    const bool onItsSide = found[0] == 0 && found[3] == 0 && found[1] != 0 && found[2] != 0;
    if (upright || onItsSide) step_ = found;
  }

  bool IsNone() const { return step_ == std::array{1, 0, 0, 1}; }
  bool SwapsSides() const { return step_[0] == 0; }

  // `from` is width x height before the turn.
  void Apply(const uint32_t* from, int width, int height, uint8_t* to, int toRowBytes) const {
    const auto [xRight, xDown, yRight, yDown] = step_;
    const ptrdiff_t right = xRight + ptrdiff_t{yRight} * width;
    const ptrdiff_t down = xDown + ptrdiff_t{yDown} * width;
    const int columns = SwapsSides() ? height : width;
    const int rows = SwapsSides() ? width : height;
    const uint32_t* row = from;
    if (xRight + xDown < 0) row += width - 1;
    if (yRight + yDown < 0) row += ptrdiff_t{width} * (height - 1);
    for (int y = 0; y < rows; ++y, row += down, to += toRowBytes) {
      auto* pixel = reinterpret_cast<uint32_t*>(to);
      const uint32_t* source = row;
      for (int x = 0; x < columns; ++x, source += right) *pixel++ = *source;
    }
  }

 private:
  static int Sign(int32_t number) {
    constexpr int32_t kHalf = 1 << 15;
    return number > kHalf ? 1 : number < -kHalf ? -1 : 0;
  }

  std::array<int, 4> step_ = {1, 0, 0, 1};  // x right, x down, y right, y down
};

// Decoded pictures to BGRA, upright and with square pixels.
class BgraConverter {
 public:
  void SetTurn(const Turn& turn) { turn_ = turn; }

  bool Convert(const AVFrame& picture, int width, int height, uint8_t* bgra, int rowBytes) {
    if (turn_.IsNone()) return Scale(picture, width, height, bgra, rowBytes);
    if (turn_.SwapsSides()) std::swap(width, height);
    lying_.resize(size_t(width) * size_t(height));
    if (!Scale(picture, width, height, reinterpret_cast<uint8_t*>(lying_.data()),
               width * kBytesPerPixel)) {
      return false;
    }
    turn_.Apply(lying_.data(), width, height, bgra, rowBytes);
    return true;
  }

 private:
  bool Scale(const AVFrame& picture, int width, int height, uint8_t* bgra, int rowBytes) {
    scaler_.reset(sws_getCachedContext(
        scaler_.release(), picture.width, picture.height, AVPixelFormat(picture.format), width,
        height, AV_PIX_FMT_BGRA, SWS_BILINEAR | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
    if (!scaler_) return false;
    SetColours(*scaler_, picture);
    sws_scale(scaler_.get(), picture.data, picture.linesize, 0, picture.height, &bgra, &rowBytes);
    return true;
  }

  Scaler scaler_;
  Turn turn_{nullptr};
  std::vector<uint32_t> lying_;
};

// The wider way of making pixels square: no detail is given up.
std::pair<int, int> SquareSize(int width, int height, AVRational aspect) {
  const double shape = av_q2d(aspect);
  const auto even = [](double side) { return std::max(2, int(std::lround(side / 2)) * 2); };
  if (shape > 1) return {even(width * shape), height};
  if (shape < 1) return {width, even(height / shape)};
  return {width, height};
}

const char* HdrName(const AVFrame& picture) {
  if (picture.color_trc == AVCOL_TRC_SMPTE2084) return "PQ";
  return picture.color_trc == AVCOL_TRC_ARIB_STD_B67 ? "HLG" : nullptr;
}

class FilePictures final : public FrameSource {
 public:
  FilePictures(bool stamp, const std::atomic<bool>& interrupted)
      : stamp_(stamp), reader_(interrupted) {}

  bool Open(const std::string& file, std::string& error, std::string& note) {
    if (!reader_.Open(file, AVMEDIA_TYPE_VIDEO, error)) {
      if (error.empty()) error = "there is no video in it";
      return false;
    }
    ahead_ = reader_.Next();
    if (!ahead_) {
      error = "its video can't be decoded";
      return false;
    }
    const Turn turn(reader_.DisplayMatrix());
    converter_.SetTurn(turn);
    auto [width, height] = SquareSize(ahead_->width, ahead_->height, reader_.PixelAspect(*ahead_));
    if (turn.SwapsSides()) std::swap(width, height);
    AVRational rate = reader_.FrameRate();
    if (rate.num <= 0 || rate.den <= 0) rate = {30, 1};
    format_ = {width, height, av_rescale(kTicksPerSecond, rate.den, rate.num)};
    length_ = reader_.Duration();
    if (const char* hdr = HdrName(*ahead_)) {
      note = "the pictures are HDR (" + std::string(hdr) +
             ") and are shown without conversion: they look flat and pale";
    }
    return true;
  }

  PictureFormat Format() const override { return format_; }
  void SetFormat(const PictureFormat& format) override { format_ = format; }

  bool Paint(int64_t place, uint32_t number, uint8_t* bgra, int rowBytes) override {
    MoveTo(int64_t(double(place) * double(format_.ticksPerFrame) * 1e6 / kTicksPerSecond));
    const auto nowMicros = uint64_t(SteadyNanos() / kNanosPerMicro);
    if (!current_ ||
        !converter_.Convert(*current_, format_.width, format_.height, bgra, rowBytes)) {
      return false;
    }
    if (stamp_) {
      PaintStamp(bgra, format_.width, format_.height, rowBytes, {number, nowMicros});
    }
    return true;
  }

 private:
  int64_t FrameMicros() const {
    return int64_t(double(format_.ticksPerFrame) * 1e6 / double(kTicksPerSecond));
  }

  // Makes `current_` the picture that the file shows at `micros` of a timeline on which it begins
  // anew at each end.
  void MoveTo(int64_t micros) {
    if (length_ > 0) micros %= length_;
    // Far ahead is nearer by a key frame, too.
    const bool back = current_ && micros < at_;
    if (back || micros > at_ + kSeekAheadMicros) {
      reader_.Seek(micros);
      current_.reset();
      ahead_ = reader_.Next();
    }
    at_ = micros;
    const int64_t tolerance = FrameMicros() / 2;  // a picture's time may be rounded either way
    while (ahead_ && (!current_ || reader_.TimeOf(*ahead_) <= micros + tolerance)) {
      current_ = std::move(ahead_);
      ahead_ = reader_.Next();
    }
    // The length, where the file doesn't tell it, shows at its end.
    if (!ahead_ && length_ == 0 && current_) length_ = reader_.TimeOf(*current_) + FrameMicros();
  }

  static constexpr int64_t kSeekAheadMicros = 5'000'000;

  const bool stamp_;
  StreamReader reader_;
  BgraConverter converter_;
  PictureFormat format_;
  int64_t length_ = 0;  // microseconds; 0: not known yet
  int64_t at_ = 0;
  Picture current_;
  Picture ahead_;
};

}  // namespace

std::unique_ptr<FrameSource> OpenFilePictures(const std::string& file, bool stamp,
                                              const std::atomic<bool>& interrupted,
                                              std::string& error, std::string& note) {
  auto pictures = std::make_unique<FilePictures>(stamp, interrupted);
  if (!pictures->Open(file, error, note)) return nullptr;
  return pictures;
}

}  // namespace Veldrift
