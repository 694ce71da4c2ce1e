#include "session/transmit_instance.h"

#include <utility>

#include "support/debug_topics.h"
#include "support/plugin_log.h"

using namespace Veldrift;

namespace {
constexpr LogCategory kLog{kLogSubsystem, "transmit"};
}

TransmitInstance::TransmitInstance(const Host::SuiteAccess* hostServices, SessionServices services)
    : hostServices_(hostServices),
      services_(std::move(services)),
      timeBase_(hostServices),
      audio_(
          services_.transport, timeBase_, [this] { return IsRunning(); },
          [this] { return ElapsedMicros(); }),
      announcer_(
          services_.transport, [this] { return Pipeline(); }, [this] { PublishEncoderStatus(); }),
      stressDriver_([this] { return Pipeline(); }, GetClock()) {
  InitDebugTopics();
  std::unique_ptr<IHardwareEncoder> encoder = services_.createDefaultEncoder();
  if (!encoder) {
    PluginLog(kLog, kLogError, "TransmitInstance: encoder factory returned null — dormant");
    return;
  }
  const auto pipeline = std::make_shared<EncoderPipeline>(std::move(encoder));
  {
    WriterLock lock(pipelineLock_);
    pipeline_ = pipeline;
  }
  PluginLog(kLog, kLogInfo, "TransmitInstance created");
  DebugTopicLog(DebugTopic::Encoder, "TransmitInstance created — pipeline active");
  epochNanos_ = GetClock().NowNanos();
  InstallEncoderCallback(*pipeline);
  // Commands can come from here on.
  services_.transport.Acquire(this);
}

TransmitInstance::~TransmitInstance() {
  services_.transport.Release(this);
  if (!HasPipeline()) return;
  PluginLog(kLog, kLogInfo, "TransmitInstance destroyed");
  FullStop();
  ReleaseSuites();
}

void TransmitInstance::FullStop() {
  stressDriver_.Stop();
  audio_.StopClock();
  audio_.StopCounting();
  Stop();
  if (const PipelineReference pipeline = Pipeline()) pipeline->Stop();
}

TransmitInstance::PipelineReference TransmitInstance::Pipeline() const {
  ReaderLock lock(pipelineLock_);
  return pipeline_;
}

void TransmitInstance::InstallEncoderCallback(EncoderPipeline& pipeline) {
  pipeline.SetOutputCallback(
      [this](const uint8_t* data, uint64_t size, bool keyFrame, uint64_t timestamp) {
        OnEncodedFrame(data, size, keyFrame, timestamp);
      });
}

int64_t TransmitInstance::ElapsedMicros() const {
  return (GetClock().NowNanos() - epochNanos_) / kNanosPerMicro;
}

void TransmitInstance::Start() {
  PluginLog(kLog, kLogInfo, "Start()");
  AcquireSuites();
  running_ = true;
  announcer_.ResetAnnouncedState(true);
  PluginLog(kLog, kLogDebug, "[dx] Start: dedup state invalidated for re-emit");
  stressDriver_.StartIfAsked();
}

void TransmitInstance::Stop() {
  if (!running_.exchange(false)) return;
  PluginLog(kLog, kLogInfo, "Stop()");
  frameCache_.Clear();
}

void TransmitInstance::StartClock(const Host::ClockRecord& clock, int32_t playID) {
  audio_.StartClock(clock, playID, audioSuite_);
}

void TransmitInstance::AcquireSuites() {
  if (hostServices_ == nullptr || ppixSuite_ != nullptr) return;
  const void* ppix = nullptr;
  const void* audio = nullptr;
  const Host::Error error =
      hostServices_->AcquireSuite(Host::kPpixSuiteName, Host::kPpixSuiteVersion, &ppix);
  const Host::Error audioError =
      hostServices_->AcquireSuite(Host::kAudioSuiteName, Host::kAudioSuiteVersion, &audio);
  ppixSuite_ = static_cast<const Host::PpixSuite*>(ppix);
  audioSuite_ = static_cast<const Host::AudioSuite*>(audio);
  PluginLog(kLog, kLogInfo, "AcquireSuites: err=%d ppix=%p audioErr=%d audio=%p", error, ppix,
            audioError, audio);
}

void TransmitInstance::ReleaseSuites() {
  if (hostServices_ == nullptr) return;
  if (std::exchange(audioSuite_, nullptr) != nullptr) {
    hostServices_->ReleaseSuite(Host::kAudioSuiteName, Host::kAudioSuiteVersion);
  }
  if (std::exchange(ppixSuite_, nullptr) != nullptr) {
    hostServices_->ReleaseSuite(Host::kPpixSuiteName, Host::kPpixSuiteVersion);
    PluginLog(kLog, kLogInfo, "ReleaseSuites done");
  }
}
