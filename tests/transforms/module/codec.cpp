#include "tests/transforms/module/codec.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cstring>
#include <string>

namespace Veldrift::Transforms {
namespace {

constexpr int kWorstQp = 51;

// From 45 at quality 0 to 10 at 100.
double RateFactorOf(uint32_t quality) { return 45.0 - 0.35 * std::min(quality, 100U); }

void SetRates(AVCodecContext& context, const Rates& rates) {
  if (rates.qp >= 0) {
    av_opt_set_int(context.priv_data, "qp", rates.qp, 0);
    return;
  }
  if (rates.mode == RateMode::Quality) {
    av_opt_set_double(context.priv_data, "crf", RateFactorOf(rates.quality), 0);
    return;
  }
  const uint32_t peak = rates.mode == RateMode::Constant ? rates.mean : rates.peak;
  context.bit_rate = rates.mean;
  context.rc_max_rate = std::max(rates.mean, peak);
  context.rc_buffer_size = static_cast<int>(std::min<int64_t>(context.rc_max_rate, INT32_MAX));
}

// The forms of NAL unit that carry no parameter set and nothing about the encoder.
bool IsPicture(const Bytes& unit, bool hevc) {
  if (hevc) return ((unit[0] >> 1) & 63) < 32;
  const int type = unit[0] & 31;
  return type >= 1 && type <= 5;
}

// Adaptive quantisation is on because a frame's own quantiser goes through it.
std::string H264Parameters() {
  return "keyint=infinite:min-keyint=1:scenecut=0:open-gop=0:bframes=0:aq-mode=1:force-cfr=1";
}

int ThreadsFor(const CodecSize& size) {
  constexpr int kSmall = 1280 * 720;
  if (size.threads > 0) return size.threads;
  return size.width * size.height <= kSmall ? 1 : 2;
}

// The shortest decisions there are: 1080p has to come near real time on two processors.
std::string HevcParameters(const CodecSize& size) {
  const int threads = ThreadsFor(size);
  constexpr int kBlockSide = 32;
  const bool small = std::min(size.width, size.height) < kBlockSide;
  return std::string("log-level=none:keyint=-1:min-keyint=1:scenecut=0:open-gop=0:bframes=0:") +
         "frame-threads=1:repeat-headers=0:info=0:rc-lookahead=0:cutree=0:aq-mode=0:rd=1:" +
         "fast-intra=1:strong-intra-smoothing=0:signhide=0:psy-rd=0:min-cu-size=16:" +
         (small ? "ctu=16:" : "ctu=32:") +
         (threads > 1 ? "pools=" + std::to_string(threads) : "pools=none:wpp=0");
}

}  // namespace

std::unique_ptr<Codec> Codec::Open(const CodecSize& size, const Rates& rates) {
  std::unique_ptr<Codec> codec(new Codec(size, rates));
  return codec->OpenContext() && codec->MakeFrame() ? std::move(codec) : nullptr;
}

void Codec::DescribeContext() {
  context_->width = size_.width;
  context_->height = size_.height;
  context_->pix_fmt = AV_PIX_FMT_YUV420P;
  context_->time_base = {1, size_.fps};
  context_->framerate = {size_.fps, 1};
  context_->sample_aspect_ratio = {1, 1};
  context_->max_b_frames = 0;
  context_->thread_count = 1;
  context_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  context_->color_primaries = AVCOL_PRI_BT709;
  context_->color_trc = AVCOL_TRC_BT709;
  context_->colorspace = AVCOL_SPC_BT709;
  context_->color_range = AVCOL_RANGE_MPEG;
  SetRates(*context_, rates_);
}

void Codec::SetOptions() {
  void* options = context_->priv_data;
  av_opt_set(options, "preset", "ultrafast", 0);
  av_opt_set(options, "tune", "zerolatency", 0);
  av_opt_set_int(options, "forced-idr", 1, 0);
  av_opt_set(options, size_.hevc ? "x265-params" : "x264-params",
             (size_.hevc ? HevcParameters(size_) : H264Parameters()).c_str(), 0);
}

bool Codec::OpenContext() {
  av_log_set_level(AV_LOG_FATAL);
  const AVCodec* codec = avcodec_find_encoder_by_name(size_.hevc ? "libx265" : "libx264");
  context_.reset(codec ? avcodec_alloc_context3(codec) : nullptr);
  packet_.reset(av_packet_alloc());
  if (!context_ || !packet_) return false;
  DescribeContext();
  SetOptions();
  if (avcodec_open2(context_.get(), nullptr, nullptr) < 0) return false;
  for (Bytes& unit : SplitUnits({context_->extradata, size_t(context_->extradata_size)})) {
    const int type = size_.hevc ? (unit[0] >> 1) & 63 : unit[0] & 31;
    const bool isSet = size_.hevc ? type >= 32 && type <= 34 : type == 7 || type == 8;
    if (isSet) sets_.push_back(std::move(unit));
  }
  return !sets_.empty();
}

bool Codec::MakeFrame() {
  frame_.reset(av_frame_alloc());
  if (!frame_) return false;
  frame_->format = context_->pix_fmt;
  frame_->width = size_.width;
  frame_->height = size_.height;
  frame_->color_range = context_->color_range;
  return av_frame_get_buffer(frame_.get(), 0) >= 0;
}

// libx264 reads its rates before every frame; libx265 when it is opened.
bool Codec::TakeRates(const Rates& rates) {
  if (rates == rates_) return true;
  if (size_.hevc || rates.mode != rates_.mode) return false;
  rates_ = rates;
  SetRates(*context_, rates);
  return true;
}

void Codec::Fill(const Picture& picture) {
  const int width = size_.width;
  for (int row = 0; row < size_.height; ++row) {
    std::memcpy(frame_->data[0] + ptrdiff_t{row} * frame_->linesize[0],
                picture.luma.data() + ptrdiff_t{row} * width, static_cast<size_t>(width));
  }
  for (int row = 0; row < size_.height / 2; ++row) {
    const uint8_t* from = picture.chroma.data() + ptrdiff_t{row} * width;
    uint8_t* cb = frame_->data[1] + ptrdiff_t{row} * frame_->linesize[1];
    uint8_t* cr = frame_->data[2] + ptrdiff_t{row} * frame_->linesize[2];
    for (int pair = 0; pair < width / 2; ++pair) {
      cb[pair] = from[2 * pair];
      cr[pair] = from[2 * pair + 1];
    }
  }
}

// A quantiser of the frame's own is an offset for all of it: the worst one exactly, since offsets
// end there. libx265 has none: its quantiser is one of the rates.
bool Codec::Order(const FrameOrder& order) {
  frame_->pict_type = order.keyFrame ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  av_frame_remove_side_data(frame_.get(), AV_FRAME_DATA_REGIONS_OF_INTEREST);
  if (order.qp < 0 || size_.hevc) return true;
  AVFrameSideData* data = av_frame_new_side_data(frame_.get(), AV_FRAME_DATA_REGIONS_OF_INTEREST,
                                                 sizeof(AVRegionOfInterest));
  if (!data) return false;
  *reinterpret_cast<AVRegionOfInterest*>(data->data) = {sizeof(AVRegionOfInterest),
                                                        0,
                                                        size_.height,
                                                        0,
                                                        size_.width,
                                                        {std::min(order.qp, kWorstQp), kWorstQp}};
  return true;
}

bool Codec::Encode(const Picture& picture, const FrameOrder& order, CodedFrame& coded) {
  if (av_frame_make_writable(frame_.get()) < 0 || !Order(order)) return false;
  Fill(picture);
  frame_->pts = frames_++;
  if (avcodec_send_frame(context_.get(), frame_.get()) < 0) return false;
  if (avcodec_receive_packet(context_.get(), packet_.get()) < 0) return false;
  coded.keyFrame = (packet_->flags & AV_PKT_FLAG_KEY) != 0;
  coded.units.clear();
  for (Bytes& unit : SplitUnits({packet_->data, static_cast<size_t>(packet_->size)})) {
    if (IsPicture(unit, size_.hevc)) coded.units.push_back(std::move(unit));
  }
  av_packet_unref(packet_.get());
  return !coded.units.empty();
}

}  // namespace Veldrift::Transforms
