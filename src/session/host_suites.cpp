#include "session/host_suites.h"

#include <algorithm>
#include <cmath>

#include "support/plugin_log.h"

namespace Veldrift {

namespace {
constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr LogCategory kTimeLog{kLogSubsystem, "main"};
constexpr int32_t kLowestFps = 1;
constexpr int32_t kHighestFps = 240;
constexpr int64_t kUsualTicksPerSecond = 254'016'000'000;
}  // namespace

// Each on its own: a host that has the one and not the other is asked for what is missing only.
void HostSuites::AcquireSuites() {
  if (hostServices_ == nullptr || ppixSuite_ != nullptr) return;
  const void* ppix = nullptr;
  const void* audio = audioSuite_;
  const Host::Error error =
      hostServices_->AcquireSuite(Host::kPpixSuiteName, Host::kPpixSuiteVersion, &ppix);
  const Host::Error audioError =
      audio != nullptr
          ? Host::kNoError
          : hostServices_->AcquireSuite(Host::kAudioSuiteName, Host::kAudioSuiteVersion, &audio);
  ppixSuite_ = static_cast<const Host::PpixSuite*>(ppix);
  audioSuite_ = static_cast<const Host::AudioSuite*>(audio);
  PluginLog(kLog, kLogInfo, "AcquireSuites: err=%d ppix=%p audioErr=%d audio=%p", error, ppix,
            audioError, audio);
}

void HostSuites::ReleaseSuites() {
  if (hostServices_ == nullptr) return;
  if (audioSuite_.exchange(nullptr) != nullptr) {
    hostServices_->ReleaseSuite(Host::kAudioSuiteName, Host::kAudioSuiteVersion);
  }
  if (ppixSuite_.exchange(nullptr) != nullptr) {
    hostServices_->ReleaseSuite(Host::kPpixSuiteName, Host::kPpixSuiteVersion);
    PluginLog(kLog, kLogInfo, "ReleaseSuites done");
  }
}

int64_t HostSuites::AskHost(Host::Error& acquireError) const {
  const void* suite = nullptr;
  acquireError = hostServices_->AcquireSuite(Host::kTimeSuiteName, Host::kTimeSuiteVersion, &suite);
  if (acquireError != Host::kNoError || suite == nullptr) return 0;
  int64_t ticksPerSecond = 0;
  static_cast<const Host::TimeSuite*>(suite)->GetTicksPerSecond(&ticksPerSecond);
  hostServices_->ReleaseSuite(Host::kTimeSuiteName, Host::kTimeSuiteVersion);
  return ticksPerSecond;
}

void HostSuites::SetVideoFrameRate(int64_t ticksPerFrame) {
  if (ticksPerFrame <= 0 || hostServices_ == nullptr) {
    PluginLog(kLog, kLogInfo, "SetVideoFrameRate: ticksPerFrame=%lld — keeping fallback %d fps",
              static_cast<long long>(ticksPerFrame), Fps());
    return;
  }
  Host::Error error = Host::kNoError;
  const int64_t ticksPerSecond = AskHost(error);
  if (error != Host::kNoError) {
    PluginLog(kTimeLog, kLogError, "SetVideoFrameRate: AcquireSuite(Time) failed err=%d", error);
    return;
  }
  if (ticksPerSecond <= 0) {
    PluginLog(kTimeLog, kLogError, "SetVideoFrameRate: GetTicksPerSecond returned %lld",
              static_cast<long long>(ticksPerSecond));
    return;
  }
  ticksPerSecond_ = ticksPerSecond;
  const double rate = double(ticksPerSecond) / double(ticksPerFrame);
  videoFps_ = int32_t(std::clamp(std::round(rate), double(kLowestFps), double(kHighestFps)));
  PluginLog(kTimeLog, kLogInfo, "SetVideoFrameRate: %lld ticks/frame → %.3f → %d fps",
            static_cast<long long>(ticksPerFrame), rate, Fps());
}

int64_t HostSuites::TicksPerSecond() {
  if (ticksPerSecond_ < 1 && hostServices_ != nullptr) {
    Host::Error ignored = Host::kNoError;
    const int64_t answer = AskHost(ignored);
    if (answer > 0) ticksPerSecond_ = answer;
  }
  return ticksPerSecond_ < 1 ? kUsualTicksPerSecond : ticksPerSecond_.load();
}

}  // namespace Veldrift
