#include "tools/platform/interrupt.h"

#include <signal.h>

namespace Veldrift {
namespace {

std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free);

void OnSignal(int) { interrupted = true; }

}  // namespace

const std::atomic<bool>& InstallInterruptFlag() {
  struct sigaction action {};
  action.sa_handler = OnSignal;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  // Its terminal was closed; whoever asked that this be ignored is heard.
  struct sigaction before {};
  if (sigaction(SIGHUP, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
    sigaction(SIGHUP, &action, nullptr);
  }
  return interrupted;
}

}  // namespace Veldrift
