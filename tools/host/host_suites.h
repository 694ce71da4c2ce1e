// The suites that the host stand-in gives the module: frames, sound to pull, time. The suites'
// calls carry no object, so there is one set of them a process. What the module does with a suite
// that it doesn't hold is a fault.
//
// Threads: the module may call from any.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>

#include "frame_pool.h"
#include "platform/mutex.h"
#include "session/host_interface.h"

namespace Veldrift {

// The sound of one play, as the audio suite hands it out. Threads: the module's.
class PulledSound {
 public:
  virtual ~PulledSound() = default;
  // The next samples in two channels. False: there is none at the moment.
  virtual bool Pull(float* const* channels, uint32_t samples) = 0;
};

class HostSuites {
 public:
  static HostSuites& Instance();

  const Host::Utilities& Utilities() const;
  FramePool& Frames() { return frames_; }

  // What the audio suite hands out for `playID`. After the second, no call is in `sound` any more.
  void Announce(int32_t playID, PulledSound& sound);
  void Withdraw(int32_t playID);

  // Acquired and not released; each suite that is left is a fault.
  int JudgeHeld();

 private:
  enum Suite : size_t { kPpix, kAudio, kTime, kSuites };

  HostSuites() = default;

  static Host::Error Acquire(const char* name, int32_t version, const void** suite);
  static Host::Error Release(const char* name, int32_t version);
  static Host::Error PullSound(int32_t playID, int64_t startTicks, float** buffers,
                               uint32_t frameCount);
  static Host::Error DisposeFrame(Host::FrameHandle frame);
  static Host::Error GetTicksPerSecond(int64_t* ticksPerSecond);
  template <typename Value, typename Read>
  static Host::Error Look(Host::FrameHandle frame, Value* out, Read read);
  static const Host::PpixSuite& Ppix();
  static Suite SuiteOf(const char* name, int32_t version);

  // Calling a suite that isn't held is a fault.
  void ExpectHeld(Suite suite);

  FramePool frames_;
  std::array<std::atomic<int>, kSuites> held_{};
  Mutex mutex_;
  std::map<int32_t, PulledSound*> plays_ VD_GUARDED_BY(mutex_);
};

}  // namespace Veldrift
