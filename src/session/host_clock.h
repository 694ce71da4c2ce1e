// The host's clock during playback: a thread that tells the host, once a frame, how much time has
// passed, and beside it whoever else goes by that clock.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/mutex.h"
#include "session/host_interface.h"
#include "session/playback_claim.h"
#include "support/clock.h"

namespace Veldrift {

// One tick of the clock.
struct ClockTick {
  int64_t nowNanos = 0;      // the clock's reading, before anybody was told
  int64_t elapsedNanos = 0;  // since the last tick
  int64_t playedNanos = 0;   // since the start
};

// Goes by the clock of one playback, from its start to its end. Threads: the clock's.
class IClockListener {
 public:
  virtual ~IClockListener() = default;
  // Once, before the first tick, and only if the clock starts. On the starter's thread.
  virtual void OnStart() = 0;
  // Behind the host's own tick, which may have taken its time.
  virtual void OnTick(const ClockTick& tick) = 0;
};

// Ticks stand on a fixed grid, a frame apart: a late one doesn't move those behind it. What one
// tick throws costs that tick.
//
// Threads: any of the host's threads, also from inside the host's own callback: there the clock
// stops, and the thread ends, once the callback has returned; somebody else joins it.
class HostClock {
 public:
  HostClock(PlaybackClaim& claim, Clock& clock) : claim_(claim), clock_(clock) {}
  // Stops, and waits for every callback that is still under way (but for its own caller's).
  ~HostClock();
  HostClock(const HostClock&) = delete;
  HostClock& operator=(const HostClock&) = delete;

  enum class StartResult {
    Started,
    NotStarted,  // the record asks for no playback, or the clock runs already
    Failed       // no thread could be had, and nothing has changed
  };
  // `ticksPerSecond` is the host's unit of time; `fps` 1 to 240.
  StartResult Start(const Host::ClockRecord& record, int64_t ticksPerSecond, int32_t fps,
                    std::unique_ptr<IClockListener> listener);

  // Behind it no callback begins any more. One that is under way is waited for, up to 5 s: a host
  // that holds a lock here which its callback wants gets away with that pause.
  void Stop();

 private:
  class Run;
  class Leftovers;

  PlaybackClaim& claim_;
  Clock& clock_;
  Mutex mutex_;
  std::shared_ptr<Run> current_ VD_GUARDED_BY(mutex_);
  std::vector<std::shared_ptr<Run>> unfinished_ VD_GUARDED_BY(mutex_);  // stopped, in a callback
};

}  // namespace Veldrift
