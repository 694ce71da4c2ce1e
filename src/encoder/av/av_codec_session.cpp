#include "encoder/av/av_codec_session.h"

extern "C" {
#include <libavutil/opt.h>
}

#include <algorithm>
#include <string>
#include <thread>
#include <utility>

#include "encoder/hardware_encoder.h"
#include "encoder/rate_control_state.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

// The decoder's buffer that the rate may fill, in parts of a second at the highest rate.
constexpr int64_t kBufferParts = 4;
constexpr int64_t kBitsPerByte = 8;
constexpr int64_t kRawBitsPerPixel = 12;  // 4:2:0

// A frame's rows or slices are encoded in parallel: half of the machine is the host's, but a second
// thread pays even on two processors, since the host waits for the frame.
int ThreadCount() {
  return static_cast<int>(std::clamp(std::thread::hardware_concurrency() / 2, 2U, 4U));
}

bool IsH264(const CodecConfig& config) { return config.codec == kCodecH264; }

const char* LibraryOf(const CodecConfig& config) { return IsH264(config) ? "libx264" : "libx265"; }

// Key frames come when they are ordered and at no other time. Adaptive quantisation is on because
// the emergency's quantiser offset goes through it.
std::string H264Parameters() {
  return "keyint=infinite:min-keyint=1:scenecut=0:open-gop=0:bframes=0:rc-lookahead=0:"
         "sync-lookahead=0:mbtree=0:aq-mode=1:force-cfr=1:repeat-headers=1:nal-hrd=none";
}

// This library writes to standard error itself: its own log is off. The shortest decisions:
// all-intra HEVC is heavy for a processor. Coding tree blocks of 16 would be faster still, but high
// rates need a level that forbids them; a picture that has no room for one of 32 gets them.
std::string HevcParameters(const CodecConfig& config, int threads) {
  constexpr int32_t kBlockSide = 32;
  const bool small = std::min(config.width, config.height) < kBlockSide;
  return std::string("log-level=none:keyint=-1:min-keyint=1:scenecut=0:open-gop=0:bframes=0:") +
         "rc-lookahead=0:cutree=0:rd=1:fast-intra=1:strong-intra-smoothing=0:signhide=0:psy-rd=0:" +
         "aq-mode=0:repeat-headers=1:annexb=1:hrd=0:aud=0:info=0:frame-threads=1:min-cu-size=16:" +
         (small ? "ctu=16:" : "ctu=32:") +
         (threads > 1 ? "pools=" + std::to_string(threads) : std::string("pools=none:wpp=0"));
}

// No frame is larger than the decoder's buffer. The buffer ends at the frame byte cap, so that key
// frames too stay within what the erasure code can protect: beyond that, the loss of one datagram
// in hundreds is the loss of the frame. The codecs take no buffer below the highest rate's share of
// a frame, so the rates end where every frame is as large as the cap, and before that where it is
// as large as the raw picture: a higher rate asks for a level that forbids a small picture's
// blocks.
void SetRatesOf(AVCodecContext& context, const CodecConfig& config, const CodecRates& rates) {
  const int64_t capBits = int64_t{config.frameByteCap} * kBitsPerByte;
  const int64_t rawBits = int64_t{config.width} * config.height * kRawBitsPerPixel;
  const int64_t highest = std::min(capBits, rawBits) * config.fps;
  context.bit_rate = std::min<int64_t>(rates.mean, highest);
  context.rc_max_rate = std::min<int64_t>(std::max(rates.mean, rates.max), highest);
  context.rc_buffer_size = static_cast<int>(std::min(context.rc_max_rate / kBufferParts, capBits));
}

// libx265 takes no offsets here: its emergency is a codec of its own.
bool HasConstantQp(const CodecConfig& config) { return config.emergency && !IsH264(config); }

void Describe(AVCodecContext& context, const CodecConfig& config) {
  context.width = config.width;
  context.height = config.height;
  context.pix_fmt = IsH264(config) ? AV_PIX_FMT_NV12 : AV_PIX_FMT_YUV420P;
  context.time_base = {1, config.fps};
  context.framerate = {config.fps, 1};
  context.sample_aspect_ratio = {1, 1};
  context.max_b_frames = 0;
  context.thread_count = IsH264(config) ? ThreadCount() : 1;
  context.thread_type = FF_THREAD_SLICE;
  context.color_primaries = AVCOL_PRI_BT709;
  context.color_trc = AVCOL_TRC_BT709;
  context.colorspace = AVCOL_SPC_BT709;
  context.color_range = AVCOL_RANGE_MPEG;
  if (config.rateControl != kRateControlQuality && !HasConstantQp(config)) {
    SetRatesOf(context, config, config.rates);
  }
}

void SetOptions(AvOptions& options, const CodecConfig& config) {
  options.Set("preset", "ultrafast");
  options.Set("tune", "zerolatency");
  options.Set("forced-idr", "1");
  if (IsH264(config)) {
    options.Set("x264-params", H264Parameters());
  } else {
    options.Set("x265-params", HevcParameters(config, ThreadCount()));
  }
  if (HasConstantQp(config)) {
    options.Set("qp", std::to_string(kEmergencyQp));
  } else if (config.rateControl == kRateControlQuality) {
    options.Set("crf", std::to_string(RateFactorOf(config.quality)));
  }
}

AvContextPtr NewContext(const CodecConfig& config) {
  const AVCodec* codec = avcodec_find_encoder_by_name(LibraryOf(config));
  AvContextPtr context(codec ? avcodec_alloc_context3(codec) : nullptr);
  if (!context) {
    PluginLog(kCategory, kLogError, "libavcodec has no %s", LibraryOf(config));
    return nullptr;
  }
  Describe(*context, config);
  return context;
}

// Packed planes, as the conversion writes them.
AvFramePtr NewFrame(const AVCodecContext& context) {
  AvFramePtr frame(av_frame_alloc());
  if (!frame) return nullptr;
  frame->format = context.pix_fmt;
  frame->width = context.width;
  frame->height = context.height;
  frame->color_range = context.color_range;
  if (av_frame_get_buffer(frame.get(), 1) < 0) return nullptr;
  return frame;
}

bool MarkRegion(AVFrame& frame, int quantiserOffset) {
  AVFrameSideData* data =
      av_frame_new_side_data(&frame, AV_FRAME_DATA_REGIONS_OF_INTEREST, sizeof(AVRegionOfInterest));
  if (!data) return false;
  auto* region = reinterpret_cast<AVRegionOfInterest*>(data->data);
  *region = {sizeof(AVRegionOfInterest), 0, frame.height, 0, frame.width, {quantiserOffset, 1}};
  return true;
}

}  // namespace

float RateFactorOf(float quality) {
  constexpr float kWorst = 45.0F;
  constexpr float kBest = 10.0F;
  return kWorst - (kWorst - kBest) * ClampQuality(quality);
}

std::unique_ptr<AvCodecSession> AvCodecSession::Open(const CodecConfig& config) {
  AvContextPtr context = NewContext(config);
  if (!context) return nullptr;
  std::unique_ptr<AvCodecSession> session(new AvCodecSession(config, std::move(context)));
  return session->OpenCodec() ? std::move(session) : nullptr;
}

AvCodecSession::AvCodecSession(const CodecConfig& config, AvContextPtr context)
    : config_(config),
      context_(std::move(context)),
      log_(context_.get()),
      packet_(av_packet_alloc()),
      assembler_(config.codec) {}

// A codec sums up in its log as it goes.
AvCodecSession::~AvCodecSession() { context_.reset(); }

bool AvCodecSession::OpenCodec() {
  AvOptions options;
  SetOptions(options, config_);
  const int result = avcodec_open2(context_.get(), nullptr, options.Get());
  if (result < 0 || !packet_) {
    PluginLog(kCategory, kLogError, "Opening %s failed: %s (%dx%d@%d %u bps)", LibraryOf(config_),
              AvErrorText(result).c_str(), config_.width, config_.height, config_.fps,
              config_.rates.mean);
    return false;
  }
  for (const std::string& option : options.Names()) {
    PluginLog(kCategory, kLogError, "%s doesn't know the option %s", Name(), option.c_str());
  }
  return true;
}

uint32_t AvCodecSession::MeanRate() const {
  if (config_.rateControl == kRateControlQuality) return config_.rates.mean;
  return static_cast<uint32_t>(context_->bit_rate);
}

bool AvCodecSession::TakeIn(FrameInput& frame) {
  if (!PrepareFrame()) return false;
  const int width = config_.width;
  const int height = config_.height;
  if (context_->pix_fmt == AV_PIX_FMT_NV12) {
    frame.ConvertToNv12(frame_->data[0], frame_->data[1], width, height);
    return true;
  }
  chroma_.resize(static_cast<size_t>(width) * static_cast<size_t>(height / 2));
  frame.ConvertToNv12(frame_->data[0], chroma_.data(), width, height);
  uint8_t* cb = frame_->data[1];
  uint8_t* cr = frame_->data[2];
  for (size_t pair = 0; pair < chroma_.size() / 2; ++pair) {
    cb[pair] = chroma_[pair * 2];
    cr[pair] = chroma_[pair * 2 + 1];
  }
  return true;
}

bool AvCodecSession::Encode(const FrameOrder& order, OutputPort& port) {
  if (!ApplyOrder(order) || !Send()) return false;
  while (Receive(port)) {
  }
  return true;
}

// The frame's memory is used again, unless the codec still holds it.
bool AvCodecSession::PrepareFrame() {
  if (!frame_ || !av_frame_is_writable(frame_.get())) frame_ = NewFrame(*context_);
  return frame_ != nullptr;
}

bool AvCodecSession::ApplyOrder(const FrameOrder& order) {
  frame_->pts = framesSent_++;
  times_.Put(frame_->pts, order.timestamp);
  frame_->pict_type = order.keyFrame ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
  av_frame_remove_side_data(frame_.get(), AV_FRAME_DATA_REGIONS_OF_INTEREST);
  return !emergency_ || MarkRegion(*frame_, 1);
}

bool AvCodecSession::Send() {
  const int result = avcodec_send_frame(context_.get(), frame_.get());
  if (result >= 0) return true;
  PluginLog(kCategory, kLogError, "avcodec_send_frame failed: %s", AvErrorText(result).c_str());
  return false;
}

// False if nothing more has come out.
bool AvCodecSession::Receive(OutputPort& port) {
  const int result = avcodec_receive_packet(context_.get(), packet_.get());
  if (result == AVERROR(EAGAIN)) return false;
  if (result < 0) {
    PluginLog(kCategory, kLogError, "avcodec_receive_packet failed: %s",
              AvErrorText(result).c_str());
    return false;
  }
  EncodedUnit unit = port.Blank();
  assembler_.Assemble({packet_->data, static_cast<size_t>(packet_->size)},
                      (packet_->flags & AV_PKT_FLAG_KEY) != 0, unit);
  unit.timestamp = times_.Find(packet_->pts);
  port.Post(std::move(unit));
  av_packet_unref(packet_.get());
  return true;
}

bool AvCodecSession::SetRates(const CodecRates& rates) {
  if (!IsH264(config_)) return false;
  if (config_.rateControl != kRateControlQuality) SetRatesOf(*context_, config_, rates);
  return true;
}

bool AvCodecSession::SetEmergency(bool emergency) {
  emergency_ = emergency;
  if (IsH264(config_)) return true;
  emergency_ = false;
  return config_.emergency == emergency;
}

bool AvCodecSession::SetQuality(float quality) {
  if (!IsH264(config_)) return false;
  av_opt_set_double(context_->priv_data, "crf", RateFactorOf(quality), 0);
  return true;
}

}  // namespace Veldrift
