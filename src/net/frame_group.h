// All datagrams of one frame, in sending order, in one block of memory: at most one allocation a
// frame, and the datagrams are built where they will be sent from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <stdexcept>

#include "net/media_datagram.h"
#include "net/spare_memory.h"
#include "support/little_endian.h"

namespace Veldrift {

// A value that moves; not thread-safe.
class FrameGroup {
 public:
  FrameGroup() = default;
  // Room for `datagrams` datagrams of at most `longest` bytes each.
  FrameGroup(bool isVideo, size_t datagrams, size_t longest);
  FrameGroup(FrameGroup&& other) noexcept { *this = std::move(other); }
  FrameGroup& operator=(FrameGroup&& other) noexcept;

  // Where the next datagram, of `length` bytes, is to be written. Throws std::length_error if there
  // is no room left.
  std::byte* Append(size_t length) {
    if (Stride(length) > capacity_ - used_) throw std::length_error("a frame group is full");
    std::byte* at = First() + used_;
    PutU16(at, uint16_t(length));
    used_ += Stride(length);
    bytes_ += length;
    ++count_;
    return at + kLengthBytes;
  }

  // Calls `send(std::span<const std::byte>)` for each datagram in order, until it answers false.
  template <typename Send>
  void ForEach(Send&& send) const {
    const std::byte* at = First();
    for (size_t i = 0; i < count_; ++i) {
      const size_t length = GetU16(at);
      if (!send(std::span<const std::byte>(at + kLengthBytes, length))) return;
      at += Stride(length);
    }
  }

  bool IsVideo() const { return isVideo_; }
  bool Empty() const { return count_ == 0; }
  size_t DatagramCount() const { return count_; }
  uint64_t Bytes() const { return bytes_; }

 private:
  // Each datagram stands behind its length, at a place where what follows its header lies on a
  // cache line's start: the copies of the payloads are the cost of framing.
  static constexpr size_t kLengthBytes = 2;
  static constexpr size_t kLead = kDatagramHeaderBytes + kLengthBytes;
  static constexpr size_t Stride(size_t length) {
    return (kLengthBytes + length + kCacheLine - 1) / kCacheLine * kCacheLine;
  }

  // Where the first datagram's length stands.
  std::byte* First() const { return memory_.get() + (kCacheLine - kLead); }

  SpareMemory memory_;
  size_t capacity_ = 0;
  size_t used_ = 0;
  uint64_t bytes_ = 0;
  size_t count_ = 0;
  bool isVideo_ = false;
};

}  // namespace Veldrift
