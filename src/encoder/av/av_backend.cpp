#include "encoder/av/av_backend.h"

#include "encoder/encoder_shell.h"
#include "encoder/rate_control_state.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

}  // namespace

bool AvBackend::Open(const EncoderPlan& plan, const std::shared_ptr<OutputPort>& port,
                     OpenedEncoder& opened) {
  plan_ = plan;
  rates_ = {plan.bitrate, plan.maxBitrate};
  port_ = port;
  if (!OpenSession(false)) return false;
  opened.name = session_->Name();
  opened.kind = "SW";
  opened.bitrate = session_->MeanRate();
  if (opened.bitrate < plan.bitrate) {
    PluginLog(kCategory, kLogInfo, "the rate ends at %u of %u bps: %u bytes a frame at %d fps",
              opened.bitrate, plan.bitrate, plan.frameByteCap, plan.fps);
  }
  return true;
}

void AvBackend::Close() { session_.reset(); }

bool AvBackend::OpenSession(bool emergency) {
  CodecConfig config;
  config.codec = plan_.codec == kCodecH264 ? kCodecH264 : kCodecHevc;
  config.width = plan_.width & ~1;
  config.height = plan_.height & ~1;
  config.fps = plan_.fps;
  config.rateControl = plan_.rateControl;
  config.quality = plan_.quality;
  config.rates = rates_;
  config.frameByteCap = plan_.frameByteCap;
  config.emergency = emergency;
  session_.reset();  // the old codec's threads end before the new one's start
  session_ = AvCodecSession::Open(config);
  if (!session_) return false;
  session_->SetEmergency(emergency);
  reopen_ = false;
  fresh_ = true;
  return true;
}

EncoderBackend::Intake AvBackend::TakeIn(FrameInput& frame, bool emergency) {
  if (!session_) return Intake::Failed;
  const bool suits = session_->SetEmergency(emergency) && !reopen_;
  if (!suits && !OpenSession(emergency)) return Intake::Failed;
  if (!session_->TakeIn(frame)) return Intake::Dropped;
  return std::exchange(fresh_, false) ? Intake::TakenNew : Intake::Taken;
}

bool AvBackend::Submit(const FrameOrder& order) { return session_->Encode(order, *port_); }

int32_t AvBackend::SetMeanRate(uint32_t bitsPerSecond) {
  rates_ = {bitsPerSecond, MaxBitrate(plan_.rateControl, bitsPerSecond, plan_.peakBitrate)};
  ApplyRates();
  return 0;
}

int32_t AvBackend::SetMaxRate(uint32_t bitsPerSecond) {
  plan_.peakBitrate = bitsPerSecond;
  rates_.max = bitsPerSecond;
  ApplyRates();
  return 0;
}

// In quality mode the rates decide nothing: no codec is opened anew for them.
void AvBackend::ApplyRates() {
  if (plan_.rateControl != kRateControlQuality && !session_->SetRates(rates_)) reopen_ = true;
}

void AvBackend::SetQuality(float quality) {
  plan_.quality = quality;
  if (!session_->SetQuality(quality)) reopen_ = true;
  PluginLog(kCategory, kLogInfo, "SetQualityMode q=%.2f → crf=%.2f", static_cast<double>(quality),
            static_cast<double>(RateFactorOf(quality)));
}

std::unique_ptr<IHardwareEncoder> MakeAvEncoder(const std::string& engineId) {
  return std::make_unique<EncoderShell>([] { return std::make_unique<AvBackend>(); }, engineId);
}

}  // namespace Veldrift
