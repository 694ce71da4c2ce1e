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
  std::vector<uint8_t> pixels;  // rows top first
  Rect bounds{};                // its origin need not be 0, 0
  int32_t rowBytes = 0;
  uint32_t format = kPixelFormatBgra;
  bool out = false;  // with the module; guarded by the pool's mutex

  int32_t Width() const { return bounds.right - bounds.left; }
  int32_t Height() const { return bounds.bottom - bounds.top; }
};
}  // namespace Host

class FramePool {
 public:
  // A frame of this size with whatever was in it last; it is out until it is disposed of. It begins
  // at `left`, `top` of the host's own coordinates.
  Host::FrameHandle Take(int width, int height, uint32_t format = Host::kPixelFormatBgra,
                         int left = 0, int top = 0);

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
