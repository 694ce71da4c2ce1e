#include "challenge_watch.h"

#include <utility>

#include "support/clock.h"
#include "tools/receiver/pairing_code_log.h"

namespace Veldrift {

namespace {

constexpr int64_t kPeriodNs = 100 * kNanosPerMilli;

}  // namespace

ChallengeWatch::ChallengeWatch(std::filesystem::path log, std::FILE* out)
    : log_(std::move(log)), tail_(log_), out_(out), thread_([this] { Run(); }) {}

ChallengeWatch::~ChallengeWatch() {
  {
    const MutexLock lock(mutex_);
    ending_ = true;
  }
  wake_.NotifyAll();
  thread_.join();
}

void ChallengeWatch::Run() {
  for (;;) {
    {
      MutexLock lock(mutex_);
      if (!ending_) SystemClock().WaitUntil(wake_, lock, SteadyNanos() + kPeriodNs);
      if (ending_) return;
    }
    ShowNew();
  }
}

// Reads the log only when it has changed: at debug level it grows to megabytes.
void ChallengeWatch::ShowNew() {
  std::error_code failed;
  const uintmax_t size = std::filesystem::file_size(log_, failed);
  if (failed || size == lastSize_) return;
  lastSize_ = size;
  const std::vector<PairingChallenge> challenges = ChallengesIn(tail_);
  if (challenges.size() < shown_) shown_ = 0;  // the log was rotated
  for (; shown_ < challenges.size(); ++shown_) {
    std::fprintf(out_, "veldrift-host: pairing code %s for %s\n", challenges[shown_].code.c_str(),
                 challenges[shown_].phoneName.c_str());
  }
  std::fflush(out_);
}

}  // namespace Veldrift
