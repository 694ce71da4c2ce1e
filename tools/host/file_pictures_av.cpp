#include "file_pictures_av.h"

#include <algorithm>
#include <utility>

#include "stream_reader_av.h"
#include "support/clock.h"
#include "tools/pattern/pattern.h"

namespace Veldrift {

namespace {

constexpr int kSmallestHdHeight = 720;

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

}  // namespace

std::unique_ptr<FrameSource> OpenFilePictures(const std::string& file, bool stamp,
                                              std::string& error) {
  auto pictures = std::make_unique<FilePictures>(stamp);
  if (!pictures->Open(file, error)) return nullptr;
  return pictures;
}

}  // namespace Veldrift
