// The state of things as a line of text, and all who wait for the next.
//
// Threads: any.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/mutex.h"
#include "support/clock.h"

namespace Veldrift {

class WebNews {
 public:
  explicit WebNews(Clock& clock) : clock_(clock) {}

  void Publish(std::string line);
  // Ends all waiting, for good.
  void Stop();

  // The newest line, once it is another than that of number `seen`, which becomes its own. Empty:
  // there was none for kIdleNs. Nothing: it is over.
  std::optional<std::string> Next(uint64_t& seen);

  static constexpr int64_t kIdleNs = kNanosPerSecond;

 private:
  Clock& clock_;
  Mutex mutex_;
  CondVar changed_;
  std::string line_ VD_GUARDED_BY(mutex_);
  uint64_t number_ VD_GUARDED_BY(mutex_) = 0;
  bool stopped_ VD_GUARDED_BY(mutex_) = false;
};

}  // namespace Veldrift
