// For log lines that only the first of a kind deserve.
#pragma once

#include <atomic>
#include <cstdint>

namespace Veldrift {

// Threads: any.
class LogLimit {
 public:
  constexpr explicit LogLimit(uint32_t count) : left_(count) {}

  // One more line may be written.
  bool Take() {
    uint32_t left = left_;
    while (left > 0) {
      if (left_.compare_exchange_weak(left, left - 1)) return true;
    }
    return false;
  }

 private:
  std::atomic<uint32_t> left_;
};

}  // namespace Veldrift
