// Measures loss by the datagrams' running numbers: which came, which came twice, and how many of
// the range between the first and the highest never came. Numbers wrap at 32 bits.
//
// Threads: belongs to its assembler's thread.
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>

namespace Veldrift {

class SequenceTracker {
 public:
  // False for a number that came before, or that is older than the window.
  bool Note(uint32_t sequence);

  // How far `sequence` lies before (negative) or behind the highest number so far.
  int64_t AheadBy(uint32_t sequence) const { return int32_t(sequence - highest_); }

  uint64_t Received() const { return received_; }
  uint64_t Missing() const { return span_ - received_; }
  // How often numbers were left out when a higher one came: runs of missing ones.
  uint64_t Gaps() const { return gaps_; }

 private:
  static constexpr size_t kWindow = 1 << 16;

  void Advance(uint32_t sequence);

  bool started_ = false;
  uint32_t highest_ = 0;
  uint64_t span_ = 0;  // numbers from the lowest to the highest that came
  uint64_t received_ = 0;
  uint64_t gaps_ = 0;
  std::bitset<kWindow> seen_;  // by number modulo the window
};

}  // namespace Veldrift
