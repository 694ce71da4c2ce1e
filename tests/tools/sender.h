// A sender of frames with contents that can be recognised, for tests of the receiving side.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "net/framing.h"

namespace Veldrift {

using Datagram = std::vector<std::byte>;

inline std::vector<std::byte> FrameContents(size_t size, uint32_t seed) {
  std::vector<std::byte> bytes(size);
  uint32_t state = seed * 2654435761U + 1;
  for (std::byte& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = std::byte(state >> 24);
  }
  return bytes;
}

struct TestSender {
  uint16_t frameNumber = 0;
  uint32_t sequence = 0;

  // The datagrams of the next frame, whose contents are FrameContents(size, its number).
  std::vector<Datagram> Next(size_t size, size_t parityCount) {
    const std::vector<std::byte> contents = FrameContents(size, frameNumber);
    FrameToSend frame;
    frame.keyFrame = frameNumber % 4 == 0;
    frame.parityCount = parityCount;
    frame.frameNumber = frameNumber++;
    frame.timestamp = frame.frameNumber * 1000U;
    frame.data = contents;
    frame.withSendTime = true;
    FrameGroup group = MakeFrameGroup(frame);
    FragmentFrame(frame, sequence, /*nowNanos=*/77'000, group);
    std::vector<Datagram> datagrams;
    group.ForEach([&](std::span<const std::byte> bytes) {
      datagrams.emplace_back(bytes.begin(), bytes.end());
      return true;
    });
    return datagrams;
  }

  std::vector<Datagram> Next(size_t size) {
    return Next(size, ChooseParityCount(DataFragmentCount(size)));
  }
};

}  // namespace Veldrift
