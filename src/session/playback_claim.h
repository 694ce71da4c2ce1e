// One instance's share in the process's count of running clocks.
#pragma once

#include <atomic>

#include "session/shared_transport.h"

namespace Veldrift {

// Counts once, whether a clock runs, the host pushes sound, or both; every change is an exchange,
// so that what was counted is taken back once, however the calls interleave.
//
// Threads: any.
class PlaybackClaim {
 public:
  explicit PlaybackClaim(SharedTransport& transport) : transport_(transport) {}

  // True if it wasn't counted before.
  bool Take() {
    if (countedAsRunning_.exchange(true)) return false;
    transport_.AdjustRunningClocks(+1);
    return true;
  }
  void GiveBack() {
    if (countedAsRunning_.exchange(false)) transport_.AdjustRunningClocks(-1);
  }

 private:
  SharedTransport& transport_;
  std::atomic<bool> countedAsRunning_{false};
};

}  // namespace Veldrift
