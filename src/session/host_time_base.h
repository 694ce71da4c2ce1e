// The host's ticks: how many make a second, and how many a frame.
#pragma once

#include <atomic>
#include <cstdint>

#include "session/host_interface.h"

namespace Veldrift {

// Threads: the host's thread sets; any thread reads.
class HostTimeBase {
 public:
  explicit HostTimeBase(const Host::SuiteAccess* hostServices) : hostServices_(hostServices) {}

  // Asks the host for its ticks a second and derives the frame rate, 1 to 240. Without a sensible
  // answer everything stays as it was.
  void SetVideoFrameRate(int64_t ticksPerFrame);

  int32_t Fps() const { return fps_; }
  int64_t TicksPerFrame() const { return ticksPerFrame_; }  // 0: unknown

  // Ticks a second, asked of the host if unknown yet; a common host's value if it doesn't tell.
  int64_t TicksPerSecond();

 private:
  // The host's value, 0 or below if it has none; `acquireError` is the suite call's answer.
  int64_t AskHost(Host::Error& acquireError) const;

  const Host::SuiteAccess* const hostServices_;
  std::atomic<int64_t> ticksPerSecond_{0}, ticksPerFrame_{0};
  std::atomic<int32_t> fps_{30};
};

}  // namespace Veldrift
