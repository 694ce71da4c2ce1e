#include "temporary_home.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "host_exit.h"
#include "platform/file.h"
#include "platform/system.h"
#include "support/clock.h"
#include "support/identifiers.h"
#include "tools/platform/interrupt.h"
#include "tools/platform/process.h"

namespace Veldrift {

namespace {

constexpr const char* kPrefix = "veldrift-self-test-";
constexpr auto kAbandonedAfter = std::chrono::hours(24);

void RemoveAbandoned(const std::filesystem::path& root) {
  std::error_code failed;
  const auto now = std::filesystem::file_time_type::clock::now();
  for (const auto& entry : std::filesystem::directory_iterator(root, failed)) {
    if (!entry.path().filename().string().starts_with(kPrefix)) continue;
    const auto made = entry.last_write_time(failed);
    if (!failed && now - made >= kAbandonedAfter) {
      std::filesystem::remove_all(entry.path(), failed);
    }
  }
}

constexpr int64_t kLookNs = 50 * kNanosPerMilli;

// An interrupt is handed on, where the console doesn't do that by itself.
int Await(ChildProcess& run, const std::atomic<bool>& interrupted) {
  bool told = false;
  while (true) {
    if (const std::optional<int> exit = run.WaitFor(kLookNs)) return *exit;
    if (interrupted && !told) run.Interrupt();
    told = interrupted;
  }
}

}  // namespace

TemporaryHome::TemporaryHome()
    : path_(std::filesystem::temp_directory_path() / (kPrefix + MakeToken(8))) {
  RemoveAbandoned(path_.parent_path());
}

TemporaryHome::~TemporaryHome() {
  if (kept_) return;
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

int RunInTemporaryHome(int argc, char** argv) {
  const std::atomic<bool>& interrupted = InstallInterruptFlag();
  TemporaryHome home;
  std::vector<std::string> arguments(argv + 1, argv + argc);
  arguments.insert(arguments.end(), {"--temporary-home", PathText(home.Path())});
  const std::unique_ptr<ChildProcess> run = StartProcess(GetExecutablePath(), arguments);
  if (!run) return Complain(kExitFailed, "can't start " + PathText(GetExecutablePath()));
  const int exit = Await(*run, interrupted);
  if (exit >= 0 && run->KilledBy() == 0) return exit;
  home.Keep();
  char crash[64];
  std::snprintf(crash, sizeof crash, "the self-test crashed (0x%x)", unsigned{run->KilledBy()});
  return Complain(kExitSelfTest, crash + (": its log and dump are in " + PathText(home.Path())));
}

}  // namespace Veldrift
