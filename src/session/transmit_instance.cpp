#include "session/transmit_instance.h"

#include <array>
#include <utility>

#include "net/control_protocol.h"
#include "session/self_tests.h"
#include "support/debug_topics.h"
#include "support/plugin_log.h"

using namespace Veldrift;

namespace {
constexpr LogCategory kLog{kLogSubsystem, "transmit"};
}

TransmitInstance::TransmitInstance(const Host::SuiteAccess* hostServices, SessionServices services)
    : services_(std::move(services)),
      state_(services_.transport.GetClock()),
      suites_(hostServices),
      seat_([this](const uint8_t* data, uint64_t size, bool keyFrame,
                   uint64_t timestamp) { OnEncodedFrame(data, size, keyFrame, timestamp); },
            state_.clock),
      announcer_(services_.transport, seat_),
      video_(services_.transport, suites_, seat_, announcer_, state_),
      audio_(services_.transport, state_),
      playbackClaim_(services_.transport),
      clock_(playbackClaim_, state_.clock),
      engineSwitch_(services_, seat_, announcer_),
      commands_(services_.transport, suites_, seat_, announcer_, video_, engineSwitch_),
      stressDriver_(seat_, state_.clock) {
  InitDebugTopics();
  if (!engineSwitch_.SeatDefaultEncoder()) {
    PluginLog(kLog, kLogError, "TransmitInstance: encoder factory returned null — dormant");
    return;
  }
  PluginLog(kLog, kLogInfo, "TransmitInstance created");
  DebugTopicLog(DebugTopic::Encoder, "TransmitInstance created — pipeline active");
  // Commands can come from here on.
  services_.transport.Acquire(this);
}

TransmitInstance::~TransmitInstance() {
  services_.transport.Release(this);
  if (!HasPipeline()) return;
  PluginLog(kLog, kLogInfo, "TransmitInstance destroyed");
  FullStop();
  suites_.ReleaseSuites();
}

void TransmitInstance::FullStop() {
  stressDriver_.Stop();
  clock_.Stop();
  playbackClaim_.GiveBack();
  Stop();
  seat_.Stop();
}

void TransmitInstance::Start() {
  PluginLog(kLog, kLogInfo, "Start()");
  suites_.AcquireSuites();
  video_.Open();
  if (!state_.running.exchange(true)) services_.transport.CountRunningInstances(+1);
  announcer_.ResetAnnouncedState(true);
  PluginLog(kLog, kLogDebug, "[dx] Start: dedup state invalidated for re-emit");
  stressDriver_.StartIfAsked();
}

void TransmitInstance::Stop() {
  if (!state_.running.exchange(false)) return;
  services_.transport.CountRunningInstances(-1);
  PluginLog(kLog, kLogInfo, "Stop()");
  video_.Close();
}

void TransmitInstance::UpdateAudioPushState(bool active, bool scrubbing) {
  audio_.SetPushing(active);
  if (active && !scrubbing) {
    playbackClaim_.Take();
  } else {
    playbackClaim_.GiveBack();
  }
}

bool TransmitInstance::StartClock(const Host::ClockRecord& clock, int32_t playID) {
  const int64_t ticksPerSecond = suites_.TicksPerSecond();
  const int32_t fps = suites_.Fps();
  const Host::AudioSuite* const suite = suites_.Audio();
  switch (clock_.Start(clock, ticksPerSecond, fps, audio_.MakePuller(suite, playID))) {
    case HostClock::StartResult::Failed:
      return false;
    case HostClock::StartResult::NotStarted:
      return true;
    case HostClock::StartResult::Started:
      break;
  }
  PluginLog(kLog, kLogInfo, "StartClock: fps=%d ticksPerSecond=%lld playID=%d audioSuite=%p", fps,
            static_cast<long long>(ticksPerSecond), playID, static_cast<const void*>(suite));
  return true;
}

bool TransmitInstance::RunSelfTest(const std::string&, std::string& result) {
  return RunStateRace(result);
}

// ---- Events of the transport -------------------------------------------------------------------

// Everything is told and shown anew. The queue has been cleared of the old phone's frames before
// the first instance greets, and the host is nudged behind the last.
void TransmitInstance::OnNewClient() {
  PluginLog(kLog, kLogInfo, "new client — forcing IDR, re-pushing StreamInfo");
  seat_.RequestIdr();
  announcer_.ResetAnnouncedState(true);
  announcer_.SendStreamInfoIfReady();
  SendHostPlatform();
  audio_.SendAudioState();
  engineSwitch_.SendEncoderEngineList();
  announcer_.PublishEncoderStatus();
  announcer_.SendEncoderInfoIfChanged();
  video_.ReplayCachedFrame();
}

void TransmitInstance::SendHostPlatform() {
  constexpr std::array kWindowsX64{std::byte{0x01}, std::byte{0x02}};
  if (services_.transport.SendControl(kHostPlatform, kWindowsX64)) {
    PluginLog(kLog, kLogInfo, "SendControl: kHostPlatform %s (%s)", "Windows", "x86_64");
  }
}

void TransmitInstance::OnUdpFailures() {
  PluginLog(kLog, kLogInfo, "consecutive UDP failures — forcing IDR");
  seat_.RequestIdr();
}
