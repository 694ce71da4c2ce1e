#include "platform/system.h"

#include <sys/random.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <thread>

#include "platform/calendar.h"
#include "platform/folders.h"

namespace Veldrift {

std::optional<std::string> GetEnvironment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) return std::nullopt;
  return value;
}

std::filesystem::path GetExecutablePath() {
  std::error_code ignored;
  return std::filesystem::read_symlink("/proc/self/exe", ignored);
}

std::filesystem::path FindRoamingFolder() { return PosixRoamingFolder(GetEnvironment); }

std::filesystem::path FindLocalFolder() { return PosixLocalFolder(GetEnvironment); }

std::string GetComputerName() {
  char buffer[256] = "";
  if (gethostname(buffer, sizeof buffer - 1) != 0) return {};
  const std::string name = buffer;
  return name.substr(0, name.find('.'));
}

bool FillRandom(std::span<std::byte> buffer) {
  while (!buffer.empty()) {
    const ssize_t count = getrandom(buffer.data(), buffer.size(), 0);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    buffer = buffer.subspan(static_cast<size_t>(count));
  }
  return true;
}

std::optional<std::array<uint8_t, 16>> CreateUuid() {
  std::array<uint8_t, 16> bytes;
  if (!FillRandom(std::as_writable_bytes(std::span(bytes)))) return std::nullopt;
  bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4: random
  bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);  // the standard's variant
  return bytes;
}

uint32_t ThreadNumber() { return static_cast<uint32_t>(gettid()); }

CalendarTime LocalTime(int64_t wallClockMillis) {
  // The division must round down before 1970 too, as the milliseconds are above it.
  const auto time =
      std::chrono::floor<std::chrono::seconds>(std::chrono::milliseconds(wallClockMillis));
  const auto seconds = static_cast<time_t>(time.count());
  tm parts{};
  localtime_r(&seconds, &parts);
  return {.year = parts.tm_year + 1900,
          .month = parts.tm_mon + 1,
          .day = parts.tm_mday,
          .hour = parts.tm_hour,
          .minute = parts.tm_min,
          .second = parts.tm_sec,
          .millisecond = static_cast<int>(wallClockMillis - time.count() * 1'000)};
}

void SleepNanos(int64_t nanos) { std::this_thread::sleep_for(std::chrono::nanoseconds(nanos)); }

void WriteToDebugger(const char*) {}

}  // namespace Veldrift
