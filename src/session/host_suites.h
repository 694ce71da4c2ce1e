// What an instance gets from its host: the suites that open frames and hand out sound, and the
// host's time base.
#pragma once

#include <atomic>
#include <cstdint>

#include "session/host_interface.h"

namespace Veldrift {

// Threads: the host's threads acquire, release and set; any thread reads.
class HostSuites {
 public:
  // Null: a host without suites. Everything then answers null or its fallback.
  explicit HostSuites(const Host::SuiteAccess* hostServices) : hostServices_(hostServices) {}

  // Acquires both suites, unless the picture's is there already.
  void AcquireSuites();
  // Gives back what was acquired.
  void ReleaseSuites();

  const Host::PpixSuite* Ppix() const { return ppixSuite_; }
  const Host::AudioSuite* Audio() const { return audioSuite_; }

  // Asks the host for its ticks a second and derives the frame rate, 1 to 240. Without a sensible
  // answer everything stays as it was.
  void SetVideoFrameRate(int64_t ticksPerFrame);

  int32_t Fps() const { return videoFps_; }

  // Ticks a second, asked of the host if unknown yet; a common host's value if it doesn't tell.
  int64_t TicksPerSecond();

 private:
  // The host's value, 0 or below if it has none; `acquireError` is the suite call's answer.
  int64_t AskHost(Host::Error& acquireError) const;

  const Host::SuiteAccess* const hostServices_;
  std::atomic<const Host::PpixSuite*> ppixSuite_{nullptr};
  std::atomic<const Host::AudioSuite*> audioSuite_{nullptr};
  std::atomic<int64_t> ticksPerSecond_{0};  // 0: unknown
  std::atomic<int32_t> videoFps_{30};
};

}  // namespace Veldrift
