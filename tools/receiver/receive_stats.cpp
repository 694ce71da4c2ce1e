#include "tools/receiver/receive_stats.h"

#include <algorithm>
#include <cmath>

namespace Veldrift {

double DelayStats::PercentileMs(double percent) const {
  if (nanos_.empty()) return 0;
  std::vector<int64_t> sorted = nanos_;
  const double rank = std::ceil(percent / 100 * double(sorted.size()));
  const size_t index = std::clamp<size_t>(size_t(rank), 1, sorted.size()) - 1;
  std::nth_element(sorted.begin(), sorted.begin() + std::ptrdiff_t(index), sorted.end());
  return double(sorted[index]) / 1e6;
}

}  // namespace Veldrift
