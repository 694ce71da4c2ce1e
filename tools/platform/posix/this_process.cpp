#include "tools/platform/this_process.h"

#include <sys/resource.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <iterator>

namespace Veldrift {

void SetEnvironment(const char* name, const std::optional<std::string>& value) {
  if (value) {
    setenv(name, value->c_str(), 1);
  } else {
    unsetenv(name);
  }
}

uint32_t ProcessNumber() { return static_cast<uint32_t>(getpid()); }

std::string SystemName() {
  utsname names{};
  if (uname(&names) != 0) return "unknown";
  std::string name = names.sysname;
  std::ranges::transform(name, name.begin(), [](unsigned char c) { return char(std::tolower(c)); });
  return name + " " + names.release;
}

double ProcessCpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

int64_t SleptNanos() {
  const auto read = [](clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
  };
  const int64_t awake = read(CLOCK_MONOTONIC);
  return read(CLOCK_BOOTTIME) - awake;
}

ProcessResources CountProcessResources() {
  const auto count = [](const char* folder) {
    std::error_code failed;
    const std::filesystem::directory_iterator entries(folder, failed);
    return failed ? 0U : uint32_t(std::distance(begin(entries), end(entries)));
  };
  const uint32_t handles = count("/proc/self/fd");
  // One of them was the folder itself.
  return {count("/proc/self/task"), handles > 0 ? handles - 1 : 0};
}

}  // namespace Veldrift
