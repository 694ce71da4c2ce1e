// Delays and their percentiles. Threads: the caller's matter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Veldrift {

class DelayStats {
 public:
  void Add(int64_t nanos) { nanos_.push_back(nanos); }
  size_t Count() const { return nanos_.size(); }

  // The smallest delay that at least `percent` per cent of all don't exceed, in milliseconds; 0
  // without any.
  double PercentileMs(double percent) const;

 private:
  std::vector<int64_t> nanos_;
};

}  // namespace Veldrift
