// What a run of the host stand-in came to, for people and for programs.
#pragma once

#include <string>

#include "exit_codes.h"
#include "plugin_driver.h"

namespace Veldrift {

std::string HostSummaryText(const DriverCounters& counters);
std::string HostSummaryJson(const DriverCounters& counters, HostExit exit);

}  // namespace Veldrift
