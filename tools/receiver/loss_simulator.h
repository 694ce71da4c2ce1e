// A bad network, in front of an assembler: loses datagrams, and delays some so that later ones
// overtake them. The same seed and input give the same output on every machine.
//
// Threads: belongs to the receiving thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <random>
#include <span>
#include <vector>

namespace Veldrift {

struct LossSettings {
  double dropPercent = 0;
  double reorderPercent = 0;
  uint32_t seed = 1;
};

class LossSimulator {
 public:
  using Sink = std::function<void(std::span<const std::byte>)>;

  LossSimulator(const LossSettings& settings, Sink sink);

  void Push(std::span<const std::byte> datagram);

  // Hands on what is still held back.
  void Flush();

  uint64_t Dropped() const { return dropped_; }
  uint64_t Reordered() const { return reordered_; }

 private:
  struct Held {
    std::vector<std::byte> datagram;
    uint32_t overtakers;  // how many have still to pass it
  };

  bool Happens(double percent);
  void ReleaseDue();

  const LossSettings settings_;
  const Sink sink_;
  std::mt19937 random_;
  std::vector<Held> held_;
  uint64_t dropped_ = 0;
  uint64_t reordered_ = 0;
};

}  // namespace Veldrift
