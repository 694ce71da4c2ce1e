// What a run of the host stand-in came to, for people and for programs.
#pragma once

#include <string>
#include <vector>

#include "fault_book.h"
#include "host_exit.h"
#include "plugin_driver.h"
#include "tools/platform/this_process.h"

namespace Veldrift {

struct HostRun {
  DriverCounters counters;                    // of all rounds together
  std::vector<ProcessResources> afterRounds;  // each time the module was unloaded
  std::vector<Fault> faults;                  // of the module
};

// What it comes to; `sentence` says what is wrong.
HostExit Judge(const HostRun& run, std::string& sentence);

std::string HostSummaryText(const HostRun& run);
std::string HostSummaryJson(const HostRun& run, HostExit exit);

}  // namespace Veldrift
