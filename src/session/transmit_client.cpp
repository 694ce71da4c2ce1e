// A phone has paired, or wants another engine: everything is told and shown anew.
#include <algorithm>
#include <array>

#include "net/control_protocol.h"
#include "session/engine_list.h"
#include "session/transmit_instance.h"
#include "support/control_bridge.h"
#include "support/host_keys.h"
#include "support/plugin_log.h"

using namespace Veldrift;

namespace {

constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr const char* kSwitchingText = "Switching encoder...";
constexpr int32_t kLongestShortGop = 5;

GopClass ClassOf(int32_t gopSize) {
  if (gopSize <= 1) return GopClass::AllIntra;
  return gopSize <= kLongestShortGop ? GopClass::Short : GopClass::Long;
}

}  // namespace

void TransmitInstance::OnNewClient() {
  PluginLog(kLog, kLogInfo, "new client — forcing IDR, re-pushing StreamInfo");
  services_.transport.GetPacer().ClearQueue();
  RequestIdr();
  announcer_.ResetAnnouncedState(true);
  announcer_.SendStreamInfoIfReady();
  SendHostPlatform();
  audio_.SendAudioState();
  SendEncoderEngineList();
  PublishEncoderStatus();
  announcer_.SendEncoderInfoIfChanged();
  ReplayCachedFrame();
  NudgeHost();
}

// A paused host renders, and so pushes, a frame.
void TransmitInstance::NudgeHost() {
  PluginLog(kLog, kLogInfo, "new client nudge (initial frame)");
  if (CallCtrlBridge(BridgeOperation::NewClientNudge)) return;
  PluginLog(kLog, kLogInfo, "Ctrl bridge unavailable — fallback to keyboard nudge");
  NudgeHostByKeyboard(GetClock());
}

void TransmitInstance::SendHostPlatform() {
  constexpr std::array kWindowsX64{std::byte{0x01}, std::byte{0x02}};
  if (services_.transport.SendControl(kHostPlatform, kWindowsX64)) {
    PluginLog(kLog, kLogInfo, "SendControl: kHostPlatform %s (%s)", "Windows", "x86_64");
  }
}

void TransmitInstance::SendEncoderEngineList() {
  const std::vector<EngineEntry> engines = services_.enumerateEngines();
  const std::vector<std::byte> payload = EncodeEngineList(engines);
  if (services_.transport.SendControl(kEncoderEngineList, payload)) {
    PluginLog(kLog, kLogInfo, "SendControl: kEncoderEngineList %zu entries (%zu B frame)",
              std::min<size_t>(engines.size(), 255), payload.size());
  }
}

// A paused host sends no frames: the phone gets the last one again. Not while the cap has made the
// encoder smaller than the source, since the cache holds the source.
void TransmitInstance::ReplayCachedFrame() {
  const CachedFrame cached = frameCache_.Copy();
  if (cached.bytes.empty()) {
    PluginLog(kLog, kLogInfo, "OnNewClient replay: no cache, waiting on Premiere");
    return;
  }
  const PipelineReference pipeline = Pipeline();
  if (!pipeline) return;
  const FrameSize encoder{pipeline->GetEncoderWidth(), pipeline->GetEncoderHeight()};
  if (encoder.width >= 1 && encoder.height >= 1 &&
      encoder != FrameSize{cached.width, cached.height}) {
    PluginLog(kLog, kLogInfo, "OnNewClient replay: dim mismatch cache=%dx%d enc=%dx%d — skip",
              cached.width, cached.height, encoder.width, encoder.height);
    return;
  }
  PluginLog(kLog, kLogInfo, "OnNewClient replay: cached %dx%d fresh IDR", cached.width,
            cached.height);
  pipeline->EncodeFrame(cached.bytes.data(), uint32_t(cached.width), uint32_t(cached.height),
                        cached.stride, ElapsedMicros());
}

void TransmitInstance::PublishEncoderStatus() {
  const PipelineReference pipeline = Pipeline();
  EncoderStatus status;
  status.legacyEngineByte = legacyEngineByte_;
  status.description = announcer_.LastEncoderDescription();
  status.codec = pipeline && pipeline->GetCodec() == kCodecH264 ? 1 : 0;
  status.gopClass = pipeline ? ClassOf(pipeline->GetGopSize()) : GopClass::AllIntra;
  services_.transport.SetEncoderStatus(status);
}

void TransmitInstance::OnUdpFailures() {
  PluginLog(kLog, kLogInfo, "consecutive UDP failures — forcing IDR");
  RequestIdr();
}

void TransmitInstance::RequestIdr() {
  if (const PipelineReference pipeline = Pipeline()) pipeline->RequestIdr();
}

// ---- Another engine ----------------------------------------------------------------------------

void TransmitInstance::SwitchEncoderEngine(const std::string& id) {
  if (id == engineId_) {
    PluginLog(kLog, kLogInfo, "engine switch: same id '%s' — no-op", id.c_str());
    return;
  }
  if (engineId_ == "auto") {
    PluginLog(kLog, kLogInfo, "engine seed 'auto' → '%s' — rebuilding to honor saved choice",
              id.c_str());
  } else {
    PluginLog(kLog, kLogInfo, "engine switch: '%s' → '%s' — full refresh", engineId_.c_str(),
              id.c_str());
    const std::string text =
        std::string(1, char(std::string(kSwitchingText).size())) + kSwitchingText;
    (void)services_.transport.SendControl(kEncoderInfo, std::as_bytes(std::span(text)));
  }
  std::unique_ptr<IHardwareEncoder> encoder = CreateEncoderFor(id);
  if (!encoder) return;
  PipelineReference pipeline = std::make_shared<EncoderPipeline>(std::move(encoder));
  InstallEncoderCallback(*pipeline);
  // Silent before the new one speaks: a late frame of the old stream behind the new one's key frame
  // would break the picture.
  if (const PipelineReference old = Pipeline()) old->SetOutputCallback({});
  {
    WriterLock lock(pipelineLock_);
    pipeline_.swap(pipeline);
  }
  // A frame that is under way in the old one ends there.
  if (pipeline) pipeline->Stop();
  announcer_.ResetAnnouncedState(false);
  engineId_ = id;
  PluginLog(kLog, kLogInfo, "engine switch: rebuilt pipeline with '%s'", id.c_str());
  PublishEncoderStatus();
}

std::unique_ptr<IHardwareEncoder> TransmitInstance::CreateEncoderFor(const std::string& id) {
  std::unique_ptr<IHardwareEncoder> encoder = services_.createForEngine(id);
  if (encoder) return encoder;
  PluginLog(kLog, kLogError,
            "engine switch: CreateForEngine('%s') failed — falling back to default", id.c_str());
  encoder = services_.createDefaultEncoder();
  if (!encoder) {
    PluginLog(kLog, kLogError, "engine switch: no encoder available — keeping current pipeline");
  }
  return encoder;
}
