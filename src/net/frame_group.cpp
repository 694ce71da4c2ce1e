#include "net/frame_group.h"

#include <cassert>
#include <utility>

#include "support/little_endian.h"

namespace Veldrift {

FrameGroup::FrameGroup(bool isVideo, size_t datagrams, size_t bytes)
    : memory_(std::make_unique_for_overwrite<std::byte[]>(bytes + datagrams * kLengthBytes)),
      capacity_(bytes + datagrams * kLengthBytes),
      isVideo_(isVideo) {}

FrameGroup& FrameGroup::operator=(FrameGroup&& other) noexcept {
  memory_ = std::move(other.memory_);
  capacity_ = std::exchange(other.capacity_, 0);
  used_ = std::exchange(other.used_, 0);
  count_ = std::exchange(other.count_, 0);
  isVideo_ = other.isVideo_;
  return *this;
}

std::byte* FrameGroup::Append(size_t length) {
  assert(used_ + kLengthBytes + length <= capacity_);
  std::byte* at = memory_.get() + used_;
  PutU16(at, uint16_t(length));
  used_ += kLengthBytes + length;
  ++count_;
  return at + kLengthBytes;
}

size_t FrameGroup::LengthAt(size_t at) const { return GetU16(memory_.get() + at); }

}  // namespace Veldrift
