// The suites that the host stand-in gives the module: frames, sound to pull, time. The suites'
// calls carry no object, so there is one set of them a process.
//
// Threads: the module may call from any; SetSound belongs to the driver, before and after the clock
// runs.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "frame_pool.h"
#include "platform/mutex.h"
#include "session/host_interface.h"
#include "sound_source.h"

namespace Veldrift {

class HostSuites {
 public:
  static HostSuites& Instance();

  const Host::Utilities& Utilities() const;
  FramePool& Frames() { return frames_; }

  // What the audio suite hands out, in step with the host's clock, whose ticks `clockTicks` tells;
  // null: nothing.
  void SetSound(SoundSource* sound, std::function<int64_t()> clockTicks);

  // Acquired and not released.
  int SuitesHeld() const;

 private:
  HostSuites() = default;

  static Host::Error Acquire(const char* name, int32_t version, const void** suite);
  static Host::Error Release(const char* name, int32_t version);
  static Host::Error PullSound(int32_t playID, int64_t startTicks, float** buffers,
                               uint32_t frameCount);

  void CatchUpWithClock() VD_REQUIRES(mutex_);

  FramePool frames_;
  mutable Mutex mutex_;
  SoundSource* sound_ VD_GUARDED_BY(mutex_) = nullptr;
  std::function<int64_t()> clockTicks_ VD_GUARDED_BY(mutex_);
  int64_t samplesPulled_ VD_GUARDED_BY(mutex_) = 0;
  int held_ VD_GUARDED_BY(mutex_) = 0;
};

}  // namespace Veldrift
