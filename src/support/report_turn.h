// Whose turn it is to write a crash report. Threads that crash together report one after the other;
// a crash inside a report ends reporting for good, so that it can't go round in a circle.
//
// Threads: any, at any moment, in a signal handler too: there is nothing in it but an atomic.
#pragma once

#include <atomic>
#include <cstdint>

namespace Veldrift {

class ReportTurn {
 public:
  // Waits for the turn of the thread with the number `self` (not 0), `pause` being called up to
  // `mostPauses` times. False: there shall be no report, since it would take too long, or since a
  // report has crashed, this one's own included.
  template <typename Pause>
  bool Begin(uint32_t self, int mostPauses, Pause&& pause) {
    for (int pauses = 0;; ++pauses) {
      uint64_t current = kNobody;
      if (owner_.compare_exchange_strong(current, self)) return true;
      if (current == self) GiveUp();
      if (current == self || current == kNoMore || pauses == mostPauses) return false;
      pause();
    }
  }

  // The next one's turn, if it was this thread's.
  void End(uint32_t self) {
    uint64_t current = self;
    owner_.compare_exchange_strong(current, kNobody);
  }

  // No report is tried any more.
  void GiveUp() { owner_ = kNoMore; }

 private:
  static constexpr uint64_t kNobody = 0;
  static constexpr uint64_t kNoMore = UINT64_MAX;  // no thread's number
  std::atomic<uint64_t> owner_{kNobody};
  static_assert(std::atomic<uint64_t>::is_always_lock_free);
};

}  // namespace Veldrift
