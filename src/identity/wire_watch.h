// Whether our service is still on the wire, by what a browse tells; and when it is due to be
// published again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/mutex.h"

namespace Veldrift {

// Threads: any. Its mutex is a leaf. Browse callbacks share it with the advertiser, and can outlive
// that.
class WireWatch {
 public:
  // From now on this full name is ours, and taken to be on the wire.
  void Expect(const std::string& name);

  // The names of one browse result. One that names others and not us is evidence of our absence;
  // two in a row are believed. An empty one says nothing.
  void TakeResult(const std::vector<std::string>& names, int64_t nowNanos);

  // True if we are absent and 1.5 s have passed since that was noticed or since this was last true.
  bool TakeRepublishTurn(int64_t nowNanos);

 private:
  void CountMiss(int64_t nowNanos) VD_REQUIRES(healMutex_);

  Mutex healMutex_;
  std::string expectedName_ VD_GUARDED_BY(healMutex_);
  bool seenOnWire_ VD_GUARDED_BY(healMutex_) = true;
  uint32_t missCount_ VD_GUARDED_BY(healMutex_) = 0;  // results in a row without us
  int64_t lastRepublishNanos_ VD_GUARDED_BY(healMutex_) = 0;
};

// Equal but for the case of ASCII letters, as DNS names are.
bool SameDnsName(const std::string& a, const std::string& b);

}  // namespace Veldrift
