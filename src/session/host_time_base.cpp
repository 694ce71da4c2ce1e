#include "session/host_time_base.h"

#include <algorithm>
#include <cmath>

#include "support/plugin_log.h"

namespace Veldrift {

namespace {
constexpr LogCategory kFallbackLog{kLogSubsystem, "transmit"};
constexpr LogCategory kLog{kLogSubsystem, "main"};
constexpr int32_t kLowestFps = 1;
constexpr int32_t kHighestFps = 240;
constexpr int64_t kUsualTicksPerSecond = 254'016'000'000;
}  // namespace

int64_t HostTimeBase::AskHost(Host::Error& acquireError) const {
  const void* suite = nullptr;
  acquireError = hostServices_->AcquireSuite(Host::kTimeSuiteName, Host::kTimeSuiteVersion, &suite);
  if (acquireError != Host::kNoError || suite == nullptr) return 0;
  int64_t ticksPerSecond = 0;
  static_cast<const Host::TimeSuite*>(suite)->GetTicksPerSecond(&ticksPerSecond);
  hostServices_->ReleaseSuite(Host::kTimeSuiteName, Host::kTimeSuiteVersion);
  return ticksPerSecond;
}

void HostTimeBase::SetVideoFrameRate(int64_t ticksPerFrame) {
  if (ticksPerFrame <= 0 || hostServices_ == nullptr) {
    PluginLog(kFallbackLog, kLogInfo,
              "SetVideoFrameRate: ticksPerFrame=%lld — keeping fallback %d fps",
              static_cast<long long>(ticksPerFrame), Fps());
    return;
  }
  Host::Error error = Host::kNoError;
  const int64_t ticksPerSecond = AskHost(error);
  if (error != Host::kNoError) {
    PluginLog(kLog, kLogError, "SetVideoFrameRate: AcquireSuite(Time) failed err=%d", error);
    return;
  }
  if (ticksPerSecond <= 0) {
    PluginLog(kLog, kLogError, "SetVideoFrameRate: GetTicksPerSecond returned %lld",
              static_cast<long long>(ticksPerSecond));
    return;
  }
  ticksPerSecond_ = ticksPerSecond;
  ticksPerFrame_ = ticksPerFrame;
  const double rate = double(ticksPerSecond) / double(ticksPerFrame);
  fps_ = int32_t(std::clamp(std::round(rate), double(kLowestFps), double(kHighestFps)));
  PluginLog(kLog, kLogInfo, "SetVideoFrameRate: %lld ticks/frame → %.3f → %d fps",
            static_cast<long long>(ticksPerFrame), rate, Fps());
}

int64_t HostTimeBase::TicksPerSecond() {
  if (ticksPerSecond_ < 1 && hostServices_ != nullptr) {
    Host::Error ignored = Host::kNoError;
    const int64_t answer = AskHost(ignored);
    if (answer > 0) ticksPerSecond_ = answer;
  }
  return ticksPerSecond_ < 1 ? kUsualTicksPerSecond : ticksPerSecond_.load();
}

}  // namespace Veldrift
