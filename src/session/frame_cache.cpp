#include "session/frame_cache.h"

#include <cstring>

#include "support/clock.h"

namespace Veldrift {

namespace {
constexpr int64_t kPeriodNanos = 250 * kNanosPerMilli;
constexpr int64_t kLargestFrame = 32 * 1024 * 1024;
}  // namespace

void FrameCache::Store(const uint8_t* pixels, int32_t width, int32_t height, int32_t stride,
                       int64_t nowNanos) {
  const int64_t size = int64_t{stride} * height;
  if (size < 1 || size > kLargestFrame) return;
  if (lastStoreNanos_ != 0 && nowNanos - lastStoreNanos_ < kPeriodNanos) return;
  lastStoreNanos_ = nowNanos;
  MutexLock lock(mutex_);
  if (!open_) return;
  frame_.bytes.resize(size_t(size));
  std::memcpy(frame_.bytes.data(), pixels, size_t(size));
  frame_.width = width;
  frame_.height = height;
  frame_.stride = stride;
}

void FrameCache::Open() {
  MutexLock lock(mutex_);
  open_ = true;
}

void FrameCache::Close() {
  MutexLock lock(mutex_);
  open_ = false;
  frame_ = {};
}

CachedFrame FrameCache::Copy() const {
  MutexLock lock(mutex_);
  return frame_;
}

}  // namespace Veldrift
