#include "frame_pool.h"

#include <algorithm>

namespace Veldrift {

namespace {

// Rows begin at multiples of this, as renderers like it: a module can't take width * 4 for granted.
constexpr int kRowAlignment = 64;

}  // namespace

Host::FrameHandle FramePool::Take(int width, int height, uint32_t format, int left, int top) {
  const MutexLock lock(mutex_);
  const auto fits = [&](const auto& frame) {
    return !frame->out && frame->Width() == width && frame->Height() == height;
  };
  auto found = std::find_if(frames_.begin(), frames_.end(), fits);
  if (found == frames_.end()) {
    auto frame = std::make_unique<Host::OpaqueFrame>();
    frame->rowBytes = (width * 4 + kRowAlignment - 1) / kRowAlignment * kRowAlignment;
    frame->pixels.resize(size_t(frame->rowBytes) * size_t(height));
    found = frames_.insert(frames_.end(), std::move(frame));
  }
  (*found)->bounds = {left, top, left + width, top + height};
  (*found)->format = format;
  (*found)->out = true;
  return found->get();
}

bool FramePool::Dispose(Host::FrameHandle frame) {
  const MutexLock lock(mutex_);
  for (const auto& each : frames_) {
    if (each.get() != frame || !each->out) continue;
    each->out = false;
    return true;
  }
  ++wronglyDisposed_;
  return false;
}

bool FramePool::IsOut(Host::FrameHandle frame) const {
  const MutexLock lock(mutex_);
  return std::any_of(frames_.begin(), frames_.end(),
                     [&](const auto& each) { return each.get() == frame && each->out; });
}

size_t FramePool::Undisposed() const {
  const MutexLock lock(mutex_);
  return size_t(
      std::count_if(frames_.begin(), frames_.end(), [](const auto& each) { return each->out; }));
}

size_t FramePool::WronglyDisposed() const {
  const MutexLock lock(mutex_);
  return wronglyDisposed_;
}

}  // namespace Veldrift
