// Keeps book, beside the assembler and without its rules, of which datagrams of each frame came
// through and which frames were delivered: so that a frame that was lost although enough of it
// came shows up.
//
// Threads: belongs to its stream's receiving thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <vector>

namespace Veldrift {

// A frame of which something reached the receiver and which was not delivered, though a later one
// was.
struct LostFrame {
  uint16_t frameNumber = 0;
  size_t dataCount = 0;
  size_t parityCount = 0;  // announced
  size_t came = 0;         // different fragments that came through
  size_t dropped = 0;      // by the simulated network

  // Any K of the K+M fragments give the frame back.
  bool Repairable() const { return came >= dataCount; }
};

class ArrivalLedger {
 public:
  // A datagram, before or after it led to a delivery, and whether the simulated network loses it.
  // What can't be read doesn't count.
  void Note(std::span<const std::byte> datagram, bool dropped);
  void Delivered(uint16_t frameNumber);

  // Another sender may come next, with other numbers: what is open is settled.
  void BeginAnew();

  // The lost frames of the whole run so far, the first kMostKept of them.
  std::vector<LostFrame> Lost() const;

  static constexpr size_t kMostKept = 4096;

 private:
  struct Entry {
    LostFrame frame;
    std::vector<bool> fragments;  // which came through
    bool delivered = false;
  };

  // The frame's place on a line that doesn't wrap; moves newest_ on.
  int64_t Place(uint16_t frameNumber);
  void SettleOld();
  void Settle(const Entry& entry);

  std::map<int64_t, Entry> open_;  // numbers here don't wrap
  int64_t newest_ = 0;
  int64_t newestDelivered_ = -1;
  bool started_ = false;
  std::vector<LostFrame> lost_;
};

}  // namespace Veldrift
