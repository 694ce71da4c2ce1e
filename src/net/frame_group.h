// All datagrams of one frame, in sending order, in one block of memory: one allocation a frame, and
// the datagrams are built where they will be sent from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace Veldrift {

// A value that moves; not thread-safe.
class FrameGroup {
 public:
  FrameGroup() = default;
  // Room for `datagrams` datagrams of `bytes` bytes in all. More than that can't be appended.
  FrameGroup(bool isVideo, size_t datagrams, size_t bytes);
  FrameGroup(FrameGroup&& other) noexcept { *this = std::move(other); }
  FrameGroup& operator=(FrameGroup&& other) noexcept;

  // Where the next datagram, of `length` bytes (65,535 at most), is to be written.
  std::byte* Append(size_t length);

  // Calls `send(std::span<const std::byte>)` for each datagram in order, until it answers false.
  template <typename Send>
  void ForEach(Send&& send) const {
    for (size_t at = 0; at < used_;) {
      const size_t length = LengthAt(at);
      if (!send(std::span<const std::byte>(memory_.get() + at + kLengthBytes, length))) return;
      at += kLengthBytes + length;
    }
  }

  bool IsVideo() const { return isVideo_; }
  bool Empty() const { return count_ == 0; }
  size_t DatagramCount() const { return count_; }
  uint64_t Bytes() const { return used_ - count_ * kLengthBytes; }

 private:
  // Each datagram stands behind its length.
  static constexpr size_t kLengthBytes = 2;
  size_t LengthAt(size_t at) const;

  std::unique_ptr<std::byte[]> memory_;
  size_t capacity_ = 0;
  size_t used_ = 0;
  size_t count_ = 0;
  bool isVideo_ = false;
};

}  // namespace Veldrift
