#include "identity/wire_watch.h"

#include <algorithm>

#include "support/plugin_log.h"
#include "support/text.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog{kLogSubsystem, "mdns"};
constexpr uint32_t kMissesToBelieve = 2;
constexpr int64_t kRepublishNanos = 1'500'000'000;

bool Contains(const std::vector<std::string>& names, const std::string& wanted) {
  return std::ranges::any_of(names,
                             [&](const std::string& name) { return SameDnsName(name, wanted); });
}

}  // namespace

bool SameDnsName(const std::string& a, const std::string& b) {
  return LowerCase(a) == LowerCase(b);
}

void WireWatch::Expect(const std::string& name) {
  MutexLock lock(healMutex_);
  expectedName_ = name;
  seenOnWire_ = true;
  missCount_ = 0;
}

void WireWatch::TakeResult(const std::vector<std::string>& names, int64_t nowNanos) {
  MutexLock lock(healMutex_);
  if (expectedName_.empty() || names.empty()) return;
  if (!Contains(names, expectedName_)) return CountMiss(nowNanos);
  if (!seenOnWire_) PluginLog(kLog, kLogInfo, "[bj] self-heal: our instance back on the wire");
  seenOnWire_ = true;
  missCount_ = 0;
}

void WireWatch::CountMiss(int64_t nowNanos) {
  ++missCount_;
  if (!seenOnWire_ || missCount_ < kMissesToBelieve) return;
  seenOnWire_ = false;
  lastRepublishNanos_ = nowNanos;
  PluginLog(kLog, kLogInfo, "[bj] self-heal: our instance ABSENT — arming re-publish");
}

bool WireWatch::TakeRepublishTurn(int64_t nowNanos) {
  MutexLock lock(healMutex_);
  if (seenOnWire_ || nowNanos - lastRepublishNanos_ < kRepublishNanos) return false;
  lastRepublishNanos_ = nowNanos;
  return true;
}

}  // namespace Veldrift
