#include "support/crash_handler.h"

#include <atomic>

#include "platform/module.h"
#include "support/crash_handler_system.h"
#include "support/guarded.h"

namespace Veldrift {
namespace {

std::atomic<bool> installed = false;

}  // namespace

void InstallCrashHandler() noexcept {
  if (installed.exchange(true)) return;
  RunGuarded(kCrashLog, "InstallCrashHandler", [] {
    if (!PinThisModule()) {
      PluginLog(kCrashLog, kLogError, "no crash handler: the module can't be kept loaded");
      return;
    }
    InstallSystemCrashHandlers();
    PluginLog(kCrashLog, kLogInfo,
              "crash handler installed (dumps → %%LOCALAPPDATA%%\\Veldrift\\crashes\\, + VEH "
              "diagnostic)");
  });
}

}  // namespace Veldrift
