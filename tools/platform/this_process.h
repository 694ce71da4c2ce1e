// What the stand-ins, tests and benchmarks change in their own process and measure of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace Veldrift {

// Sets the variable for this process and its children; an absent value removes it.
void SetEnvironment(const char* name, const std::optional<std::string>& value);

uint32_t ProcessNumber();

// The system and its version: "linux 6.1.0", "windows 10.0.19045", and behind that, where it is
// none, what stands in for it: "(wine 8.0)".
std::string SystemName();

// User and system time of the whole process so far, in seconds.
double ProcessCpuSeconds();

// How long the machine has slept since it was started, as far as the steady clock leaves that out.
int64_t SleptNanos();

// What the process has open at the moment; 0 where the system doesn't tell. A thread that has just
// been joined can still be counted for a moment.
struct ProcessResources {
  uint32_t threads = 0;
  uint32_t handles = 0;  // files, sockets and whatever else the system counts with them

  bool operator==(const ProcessResources&) const = default;
};
ProcessResources CountProcessResources();

}  // namespace Veldrift
