#include "tools/receiver/self_tests.h"

#include "support/clock.h"
#include "tools/receiver/commands.h"

namespace Veldrift {

namespace {

constexpr int64_t kLookNs = 20 * kNanosPerMilli;
constexpr const char* kDash = " — ";

SelfTestVerdict VerdictOf(const std::string& id, const std::string& rest) {
  const size_t dash = rest.find(kDash);
  const std::string detail =
      dash == rest.npos ? "" : rest.substr(dash + std::char_traits<char>::length(kDash));
  return {id, true, rest.starts_with("PASS"), detail};
}

}  // namespace

std::vector<SelfTestVerdict> SelfTests::Run(const std::vector<std::string>& ids, PhoneLink& link,
                                            double seconds, const std::atomic<bool>& interrupted) {
  std::vector<SelfTestVerdict> verdicts;
  for (const std::string& id : ids) {
    const std::string marker = "[FIXTEST " + id + "] ";
    log_.Take();
    link.Send(MarkerCommand("SELFTEST " + id));
    const int64_t deadline = SteadyNanos() + int64_t(seconds * 1e9);
    SelfTestVerdict verdict{id, false, false, ""};
    while (!verdict.came && !interrupted && !link.Ended() && SteadyNanos() < deadline) {
      for (const LogEntry& entry : log_.Take()) {
        if (!entry.message.starts_with(marker)) continue;
        verdict = VerdictOf(id, entry.message.substr(marker.size()));
      }
      if (!verdict.came) SystemClock().SleepFor(kLookNs);
    }
    verdicts.push_back(verdict);
  }
  return verdicts;
}

std::string VerdictText(const SelfTestVerdict& verdict) {
  return verdict.id + " " + (verdict.passed ? "PASS" : "FAIL") + kDash +
         (verdict.came ? verdict.detail : "no verdict in the plug-in's log");
}

}  // namespace Veldrift
