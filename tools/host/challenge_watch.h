// Shows the six digits of each pairing that begins, as the plug-in's log tells them: the stand-in
// is the only screen there is.
//
// Threads: one of its own, from the constructor to the destructor.
#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <thread>

#include "platform/mutex.h"
#include "tools/receiver/log_tail.h"

namespace Veldrift {

class ChallengeWatch {
 public:
  // Challenges count that are written to `log` from now on; `out` must outlive this.
  ChallengeWatch(std::filesystem::path log, std::FILE* out);
  ~ChallengeWatch();
  ChallengeWatch(const ChallengeWatch&) = delete;
  ChallengeWatch& operator=(const ChallengeWatch&) = delete;

 private:
  void Run();
  void ShowNew();

  const std::filesystem::path log_;
  const LogTail tail_;
  std::FILE* const out_;
  uintmax_t lastSize_ = 0;  // of the log; the thread's own, as the next
  size_t shown_ = 0;
  Mutex mutex_;
  CondVar wake_;
  bool ending_ VD_GUARDED_BY(mutex_) = false;
  std::thread thread_;  // last: it uses all the others
};

}  // namespace Veldrift
