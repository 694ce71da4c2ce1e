#include "encoder/codec_properties.h"

#include "encoder/rate_control_state.h"

namespace Veldrift {
namespace {

// The platform's numbers for the modes; they run otherwise than ours.
constexpr uint32_t kPlatformCbr = 0;
constexpr uint32_t kPlatformPeakConstrainedVbr = 1;
constexpr uint32_t kPlatformQuality = 3;

uint32_t PlatformMode(int32_t rateControl) {
  switch (rateControl) {
    case kRateControlQuality:
      return kPlatformQuality;
    case kRateControlVbr:
      return kPlatformPeakConstrainedVbr;
    default:
      return kPlatformCbr;
  }
}

}  // namespace

void SetCodecProperties(EncoderTransform& transform, const EncoderPlan& plan) {
  if (!transform.HasProperties()) return;
  transform.SetProperty(CodecProperty::LowLatency, 1);
  transform.SetProperty(CodecProperty::RealTime, 1);
  transform.SetProperty(CodecProperty::RateControlMode, PlatformMode(plan.rateControl));
  transform.SetProperty(CodecProperty::MeanBitRate, plan.bitrate);
  transform.SetProperty(CodecProperty::MaxBitRate, plan.maxBitrate);
  transform.SetProperty(CodecProperty::Quality, QualityPercent(plan.quality));
  transform.SetProperty(CodecProperty::GopSize, static_cast<uint32_t>(plan.gopSize));
  transform.SetProperty(CodecProperty::BPictureCount, 0);
}

}  // namespace Veldrift
