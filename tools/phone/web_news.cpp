#include "web_news.h"

#include <utility>

namespace Veldrift {

void WebNews::Publish(std::string line) {
  const MutexLock lock(mutex_);
  line_ = std::move(line);
  ++number_;
  changed_.NotifyAll();
}

void WebNews::Stop() {
  const MutexLock lock(mutex_);
  stopped_ = true;
  changed_.NotifyAll();
}

std::optional<std::string> WebNews::Next(uint64_t& seen) {
  const int64_t deadlineNs = clock_.NowNanos() + kIdleNs;
  MutexLock lock(mutex_);
  while (!stopped_ && seen == number_) {
    if (clock_.NowNanos() >= deadlineNs) return "";
    clock_.WaitUntil(changed_, lock, deadlineNs);
  }
  if (stopped_) return std::nullopt;
  seen = number_;
  return line_;
}

}  // namespace Veldrift
