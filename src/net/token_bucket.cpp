#include "net/token_bucket.h"

#include <algorithm>

#include "support/clock.h"

namespace Veldrift {

namespace {
constexpr double kBurstSeconds = 0.02;
constexpr int64_t kLeastWaitMicros = 50;
// A rate of 0 would wait for ever in a single step; a second later the rate may be another.
constexpr double kLongestWaitMicros = 1e6;
}  // namespace

int64_t TokenBucket::TakeOrWait(size_t size, uint32_t bitsPerSecond, int64_t nowNanos) {
  const int64_t elapsed = nowNanos - lastRefillNanos_;
  lastRefillNanos_ = nowNanos;
  const double rate = bitsPerSecond * 0.125;
  const double bytes = double(size);
  tokens_ = std::min(tokens_ + double(elapsed) / 1e9 * rate, std::max(bytes, rate * kBurstSeconds));
  if (tokens_ >= bytes) {
    tokens_ -= bytes;
    return 0;
  }
  const double wait = rate > 0 ? (bytes - tokens_) / rate * 1e6 : kLongestWaitMicros;
  return std::max(int64_t(std::min(wait, kLongestWaitMicros)), kLeastWaitMicros) * kNanosPerMicro;
}

}  // namespace Veldrift
