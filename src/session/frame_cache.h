// A copy of the last frame, for a phone that arrives while the host is paused and sends none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "platform/mutex.h"

namespace Veldrift {

struct CachedFrame {
  std::vector<uint8_t> bytes;  // BGRA, rows as the host laid them out; empty: no frame
  int32_t width = 0, height = 0, stride = 0;
};

// Threads: one thread stores; any thread takes a copy, opens or closes.
class FrameCache {
 public:
  // Closed at first.
  void Open();
  // Forgets the frame. One that is still on its way comes too late: a monitor that was switched off
  // is shown to nobody.
  void Close();

  // Copies the frame, at most four times a second and only up to 32 MiB: a copy costs the host's
  // thread milliseconds. `stride` x `height` bytes are read.
  void Store(const uint8_t* pixels, int32_t width, int32_t height, int32_t stride,
             int64_t nowNanos);
  CachedFrame Copy() const;

 private:
  mutable Mutex mutex_;
  bool open_ VD_GUARDED_BY(mutex_) = false;
  CachedFrame frame_ VD_GUARDED_BY(mutex_);
  int64_t lastStoreNanos_ = 0;  // the storing thread's; 0 is never
};

}  // namespace Veldrift
