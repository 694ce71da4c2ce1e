// The host's frames: buffers that are handed to the module by handle, disposed of by it, and used
// again. Counts what was never disposed of, and what was disposed of twice.
//
// Threads: any, since a module may dispose from any.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/mutex.h"
#include "session/host_interface.h"

namespace Veldrift {

namespace Host {
struct OpaqueFrame {
  std::vector<uint8_t> pixels;  // BGRA, rows top first
  int32_t width = 0;
  int32_t height = 0;
  int32_t rowBytes = 0;
  bool out = false;  // with the module; guarded by the pool's mutex
};
}  // namespace Host

class FramePool {
 public:
  // A frame of this size with whatever was in it last; it is out until it is disposed of.
  Host::FrameHandle Take(int width, int height);

  // False for a handle that isn't out.
  bool Dispose(Host::FrameHandle frame);

  // Whether the module may look into it.
  bool IsOut(Host::FrameHandle frame) const;

  size_t Undisposed() const;
  size_t WronglyDisposed() const;

 private:
  mutable Mutex mutex_;
  std::vector<std::unique_ptr<Host::OpaqueFrame>> frames_ VD_GUARDED_BY(mutex_);
  size_t wronglyDisposed_ VD_GUARDED_BY(mutex_) = 0;
};

}  // namespace Veldrift
