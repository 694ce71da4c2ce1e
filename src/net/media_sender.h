// The one way from a coded picture or a block of sound to the pacer: numbers are taken, datagrams
// made, the group queued. Picture and sound are two streams with numbers of their own, which all
// instances of the process share and which never begin anew.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>

#include "net/framing.h"
#include "net/pacer.h"
#include "support/clock.h"

namespace Veldrift {

// Threads: any, at once. The numbers of one frame are taken in one step, so that no two frames
// interleave.
class MediaSender {
 public:
  MediaSender(Pacer& pacer, Clock& clock) : pacer_(pacer), clock_(clock) {}

  struct Result {
    enum class Outcome { Queued, Empty, TooLarge } outcome = Outcome::Empty;
    size_t dataFragments = 0;
    size_t parityFragments = 0;
  };

  // Queues one access unit with its parity. `timestamp` in microseconds of the instance's timeline;
  // its low 32 bits go out. TooLarge: more fragments than a datagram can number, and nothing was
  // sent or numbered.
  Result SendPicture(std::span<const std::byte> unit, bool keyFrame, uint64_t timestamp);

  // Queues a block of sound, without parity, in as many frames as its size takes.
  void SendSound(std::span<const std::byte> block, uint64_t timestamp);

  // Frames of sound that were numbered so far, modulo 2^16.
  uint16_t SoundFrames() const { return sound_.frameNumber; }

 private:
  struct StreamNumbers {
    std::atomic<uint16_t> frameNumber{0};
    std::atomic<uint32_t> sequence{0};
  };

  // False if the frame can't be framed; it takes no number then.
  bool Queue(FrameToSend& frame, StreamNumbers& numbers);

  Pacer& pacer_;
  Clock& clock_;
  StreamNumbers picture_, sound_;
};

}  // namespace Veldrift
