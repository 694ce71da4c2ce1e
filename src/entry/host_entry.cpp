// The module's two exports. Each function of the table finds the instance in the host's record and
// calls it; nothing throws across this edge.
#include <cmath>
#include <cstdint>
#include <cwchar>
#include <utility>

#include "session/host_interface.h"
#include "session/shared_transport.h"
#include "session/transmit_instance.h"
#include "support/crash_handler.h"
#include "support/guarded.h"
#include "support/plugin_log.h"
#include "ui/pairing_window.h"
#include "ui/setup_window.h"

using namespace Veldrift;

namespace {

constexpr LogCategory kLog{kLogSubsystem, "main"};
constexpr const char* kPluginVersion = "0.2.0";
constexpr wchar_t kDisplayName[] = L"Ombrette";
constexpr int32_t kPluginRecordVersion = 4;
constexpr int32_t kSamplesPerFrame = 1024;
constexpr float kFallbackSampleRate = 48'000;
constexpr int32_t kAudioModeChannels = 2;
constexpr int32_t kLeftChannel = 100;
constexpr int32_t kRightChannel = 101;
constexpr int64_t kAudioLatencyFrames = 5;
constexpr int64_t kVideoLatencyFrames = 2;
constexpr int32_t kProgressive = 4;

// Runs one function of the table. Whatever it throws ends here: the host gets `onException`.
template <typename Body>
Host::Error Guarded(const char* role, Body&& body,
                    Host::Error onException = Host::kNoError) noexcept {
  Host::Error answer = onException;
  RunGuarded(kLog, role, [&] { answer = body(); });
  return answer;
}

TransmitInstance* InstanceOf(const Host::InstanceRecord* record) {
  return record != nullptr ? static_cast<TransmitInstance*>(record->slot) : nullptr;
}

// Runs `body` on the record's instance; an empty slot does nothing.
template <typename Body>
Host::Error WithInstance(const char* role, const Host::InstanceRecord* record, Body&& body) {
  return Guarded(role, [&] {
    if (TransmitInstance* instance = InstanceOf(record)) body(*instance);
    return Host::kNoError;
  });
}

// A rate as the host gives it, where whole numbers are wanted; what no number holds becomes 0.
int32_t WholeRate(float rate) { return rate > 0 && rate < float(INT32_MAX) ? int32_t(rate) : 0; }

int64_t LatencyTicks(const Host::InstanceRecord* record, int64_t frames) {
  const int64_t ticks = record != nullptr ? record->ticksPerFrame : 0;
  return ticks > 0 && ticks <= INT64_MAX / frames ? frames * ticks : 0;
}

Host::Error Answer(int32_t* out, int32_t value) {
  if (out != nullptr) *out = value;
  return Host::kNoError;
}

// ---- The module --------------------------------------------------------------------------------

// Once: the first instance starts threads that read it.
void InstallPairingWindow() {
  [[maybe_unused]] static const bool once = [] {
    SharedTransport::Get().SetPairingDialogFactory(CreatePairingDialog);
    return true;
  }();
}

Host::Error Startup(Host::PluginRecord* plugin) {
  return Guarded("Startup", [&] {
    InstallCrashHandler();
    PluginLog(kLog, kLogInfo, "Ombrette plugin v%{public}s starting up", kPluginVersion);
    InstallPairingWindow();
    if (plugin == nullptr) return Host::kNoError;
    *plugin = {};
    std::wmemcpy(plugin->displayName, kDisplayName, std::size(kDisplayName));
    plugin->version = kPluginRecordVersion;
    plugin->hasSetup = 1;
    plugin->hasAudio = 1;
    plugin->hasVideo = 1;
    plugin->hasClock = 1;
    plugin->hasStreamLabel = 0;
    plugin->pushesAudio = 1;
    plugin->isBroadcast = 1;
    return Host::kNoError;
  });
}

Host::Error Shutdown() {
  return Guarded("Shutdown", [] {
    CloseSetupDialog();
    SharedTransport::Get().Shutdown();
    return Host::kNoError;
  });
}

Host::Error SetupDialog(void*) {
  return Guarded("SetupDialog", [] {
    ShowSetupDialog();
    return Host::kNoError;
  });
}

Host::Error NeedsReset(int32_t* answer) { return Answer(answer, 0); }
Host::Error Supports(int32_t* answer) { return Answer(answer, 1); }
Host::Error Unused() { return Host::kNoError; }

// ---- Instances ---------------------------------------------------------------------------------

Host::Error CreateInstance(Host::InstanceRecord* record) {
  return Guarded(
      "CreateInstance",
      [&] {
        if (record == nullptr) return Host::kErrorUnsupported;
        record->slot = nullptr;
        const Host::SuiteAccess* services =
            record->utilities != nullptr ? record->utilities->GetSuiteAccess() : nullptr;
        auto instance =
            std::make_unique<TransmitInstance>(services, SessionServices{SharedTransport::Get()});
        if (!instance->HasPipeline()) return Host::kErrorUnsupported;
        instance->SetAudioFormat(record->sampleRate, record->channels);
        instance->SetVideoFrameRate(record->ticksPerFrame);
        instance->Start();
        record->slot = instance.release();
        return Host::kNoError;
      },
      Host::kErrorUnsupported);
}

Host::Error DisposeInstance(Host::InstanceRecord* record) {
  return Guarded("DisposeInstance", [&] {
    if (record == nullptr) return Host::kNoError;
    const std::unique_ptr<TransmitInstance> instance(
        static_cast<TransmitInstance*>(std::exchange(record->slot, nullptr)));
    return Host::kNoError;
  });
}

Host::Error ActivateDeactivate(Host::InstanceRecord* record, int32_t audio, int32_t video) {
  return WithInstance("ActivateDeactivate", record, [&](TransmitInstance& instance) {
    const bool stop = audio == 0 && video == 0;
    PluginLog(kLog, kLogInfo, "ActivateDeactivate: audio=%d video=%d → %s", audio, video,
              stop ? "Stop" : "Start");
    if (stop) {
      instance.Stop();
    } else {
      instance.Start();
    }
  });
}

Host::Error QueryAudioMode(const Host::InstanceRecord* record, int32_t index,
                           Host::AudioMode* mode) {
  return Guarded(
      "QueryAudioMode",
      [&] {
        if (index != 0 || mode == nullptr) return Host::kErrorUnsupported;
        const float rate =
            record != nullptr && record->sampleRate > 0 ? record->sampleRate : kFallbackSampleRate;
        mode->sampleRate = rate;
        mode->sampleRateInteger = WholeRate(rate);
        mode->channelCount = kAudioModeChannels;
        mode->channelLabels[0] = kLeftChannel;
        mode->channelLabels[1] = kRightChannel;
        mode->latencyTicks = LatencyTicks(record, kAudioLatencyFrames);
        PluginLog(kLog, kLogInfo, "QueryAudioMode: idx=%d rate=%.0f ch=2", index, double(rate));
        return Host::kNoError;
      },
      Host::kErrorUnsupported);
}

Host::Error QueryVideoMode(const Host::InstanceRecord* record, int32_t index,
                           Host::VideoMode* mode) {
  return Guarded(
      "QueryVideoMode",
      [&] {
        if (index != 0 || mode == nullptr) return Host::kErrorUnsupported;
        *mode = {};
        mode->fieldType = kProgressive;
        mode->pixelFormat = Host::kPixelFormatBgra;
        mode->latencyTicks = LatencyTicks(record, kVideoLatencyFrames);
        return Host::kNoError;
      },
      Host::kErrorUnsupported);
}

// ---- Playback ----------------------------------------------------------------------------------

// Without a clock the host's playback would stand: it is told.
Host::Error StartClock(Host::InstanceRecord* record, const Host::ClockRecord* clock) {
  return Guarded(
      "StartClock",
      [&] {
        TransmitInstance* const instance = InstanceOf(record);
        if (instance == nullptr || clock == nullptr) return Host::kNoError;
        return instance->StartClock(*clock, record->playID) ? Host::kNoError
                                                            : Host::kErrorUnsupported;
      },
      Host::kErrorUnsupported);
}

Host::Error StopClock(Host::InstanceRecord* record) {
  return WithInstance("StopClock", record,
                      [](TransmitInstance& instance) { instance.StopClock(); });
}

Host::Error PushVideo(Host::InstanceRecord* record, const Host::FrameList* frames) {
  return WithInstance("PushVideo", record,
                      [&](TransmitInstance& instance) { instance.PushVideo(frames); });
}

Host::Error StartPushAudio(Host::InstanceRecord* record, Host::AudioStart* start) {
  return WithInstance("StartPushAudio", record, [&](TransmitInstance& instance) {
    const int32_t scrubbing = start != nullptr ? start->scrubbing : 0;
    if (start != nullptr) start->samplesPerFrame = kSamplesPerFrame;
    PluginLog(kLog, kLogInfo, "StartPushAudio: samplesPerFrame=%d scrubbing=%d", kSamplesPerFrame,
              scrubbing);
    instance.UpdateAudioPushState(true, scrubbing != 0);
  });
}

Host::Error PushAudio(Host::InstanceRecord* record, const Host::AudioBlock* block) {
  return WithInstance("PushAudio", record,
                      [&](TransmitInstance& instance) { instance.PushAudio(block); });
}

Host::Error StopPushAudio(Host::InstanceRecord* record) {
  return WithInstance("StopPushAudio", record, [](TransmitInstance& instance) {
    PluginLog(kLog, kLogInfo, "StopPushAudio");
    instance.UpdateAudioPushState(false, false);
  });
}

}  // namespace

extern "C" Host::Error xTransmitEntry(void*, int32_t load, void*, Host::TransmitTable* table) {
  if (load == 0 || table == nullptr) return Host::kNoError;
  *table = {Startup,        Shutdown,       SetupDialog,
            NeedsReset,     CreateInstance, DisposeInstance,
            QueryAudioMode, QueryVideoMode, ActivateDeactivate,
            StartClock,     StopClock,      PushVideo,
            StartPushAudio, PushAudio,      StopPushAudio,
            Unused,         Unused,         Supports,
            Supports};
  return Host::kNoError;
}

extern "C" int32_t vd_transmit_publish_playback_state(int32_t state) {
  return Guarded("publish playback state",
                 [&] { return SharedTransport::Get().PublishPlaybackState(state != 0) ? 1 : 0; });
}
