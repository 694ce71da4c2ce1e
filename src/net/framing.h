// Cuts an encoded frame or an audio block into datagrams, parity included.
//
// Threads: any, at once; the scratch buffers belong to the calling thread and are kept until it
// ends, so that a steady stream allocates nothing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "net/frame_group.h"
#include "net/media_datagram.h"

namespace Veldrift {

// How many data fragments `size` bytes make.
constexpr size_t DataFragmentCount(size_t size) {
  return (size + kFragmentBytes - 1) / kFragmentBytes;
}

// How many parity fragments protect a video frame of `dataCount` data fragments: a tenth, rounded
// up, within what the block code takes; none above that.
size_t ChooseParityCount(size_t dataCount);

// How many datagrams FragmentFrame emits for `size` bytes; 0 if they can't be framed.
size_t CountDatagrams(size_t size, size_t parityCount);

struct FrameToSend {
  StreamType streamType = StreamType::Video;
  bool keyFrame = false;
  size_t parityCount = 0;  // at most 63, and 255 with the data; ignored above 255 data fragments
  uint16_t frameNumber = 0;
  uint32_t timestamp = 0;  // microseconds
  std::span<const std::byte> data;
  bool withSendTime = false;  // each data fragment ends in the time of its making
};

// A group with room for exactly the datagrams of `frame`.
FrameGroup MakeFrameGroup(const FrameToSend& frame);

// Appends all datagrams of `frame` to `sink`, data first, then parity, and advances `sequence` once
// per datagram. `nowNanos` is the steady clock, for the send time. False, and nothing appended, if
// the frame can't be framed.
//
// Without a working block code the parity stays announced in every header but isn't sent.
bool FragmentFrame(const FrameToSend& frame, uint32_t& sequence, int64_t nowNanos,
                   FrameGroup& sink);

}  // namespace Veldrift
