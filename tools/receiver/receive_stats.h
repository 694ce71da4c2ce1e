// Delays and their percentiles, in bounded memory: of a long run an even choice is kept. Threads:
// the caller's matter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Veldrift {

class DelayStats {
 public:
  void Add(int64_t nanos);
  size_t Count() const { return count_; }

  // The smallest delay that at least `percent` per cent of all don't exceed, in milliseconds; 0
  // without any.
  double PercentileMs(double percent) const;

 private:
  size_t count_ = 0;
  size_t step_ = 1;  // each so many delays one is kept
  std::vector<int64_t> nanos_;
};

}  // namespace Veldrift
