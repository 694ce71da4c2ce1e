#include "tools/cli/status_line.h"

#include <cstdio>

#include "support/clock.h"
#include "tools/platform/terminal.h"

namespace Veldrift {

namespace {

constexpr int64_t kLivePeriodNs = 200 * kNanosPerMilli;
constexpr int64_t kPlainPeriodNs = 5 * kNanosPerSecond;

}  // namespace

StatusLine::StatusLine(bool quiet) : quiet_(quiet), terminal_(StandardOutputIsTerminal()) {}

void StatusLine::Show(const std::string& text, int64_t nowNs) {
  if (nextNs_ == 0 && !terminal_) nextNs_ = nowNs + kPlainPeriodNs;
  if (quiet_ || nowNs < nextNs_) return;
  nextNs_ = nowNs + (terminal_ ? kLivePeriodNs : kPlainPeriodNs);
  if (terminal_) {
    const auto columns = size_t(TerminalColumns());
    std::printf("\r\x1b[K%s", text.substr(0, columns > 1 ? columns - 1 : 0).c_str());
  } else {
    std::printf("%s\n", text.c_str());
  }
  std::fflush(stdout);
  shown_ = true;
}

void StatusLine::Clear() {
  if (shown_ && terminal_) std::printf("\r\x1b[K");
  shown_ = false;
  std::fflush(stdout);
}

}  // namespace Veldrift
