#include "net/frame_group.h"

#include <utility>

namespace Veldrift {

FrameGroup::FrameGroup(bool isVideo, size_t datagrams, size_t longest)
    : memory_(TakeSpareMemory(datagrams * Stride(longest) + kCacheLine)),
      capacity_(datagrams * Stride(longest)),
      isVideo_(isVideo) {}

FrameGroup& FrameGroup::operator=(FrameGroup&& other) noexcept {
  memory_ = std::move(other.memory_);
  capacity_ = std::exchange(other.capacity_, 0);
  used_ = std::exchange(other.used_, 0);
  bytes_ = std::exchange(other.bytes_, 0);
  count_ = std::exchange(other.count_, 0);
  isVideo_ = other.isVideo_;
  return *this;
}

}  // namespace Veldrift
