#include "tools/receiver/receive_stats.h"

#include <algorithm>
#include <cmath>

namespace Veldrift {

namespace {

constexpr size_t kMostKept = 1 << 16;

}  // namespace

void DelayStats::Add(int64_t nanos) {
  if (count_++ % step_ != 0) return;
  nanos_.push_back(nanos);
  if (nanos_.size() < kMostKept) return;
  step_ *= 2;
  for (size_t i = 0; i < nanos_.size() / 2; ++i) nanos_[i] = nanos_[2 * i];
  nanos_.resize(nanos_.size() / 2);
}

double DelayStats::PercentileMs(double percent) const {
  if (nanos_.empty()) return 0;
  std::vector<int64_t> sorted = nanos_;
  const double rank = std::ceil(percent / 100 * double(sorted.size()));
  const size_t index = std::clamp<size_t>(size_t(rank), 1, sorted.size()) - 1;
  std::nth_element(sorted.begin(), sorted.begin() + std::ptrdiff_t(index), sorted.end());
  return double(sorted[index]) / 1e6;
}

}  // namespace Veldrift
