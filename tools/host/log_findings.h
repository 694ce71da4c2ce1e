// What the module's log tells of a run that nobody watched: the adapter, whether pictures stay on
// it, what was given up on the way, and its errors and worse.
//
// Threads: one thread uses it.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tools/receiver/pairing_log.h"

namespace Veldrift {

struct LogFindings {
  std::string adapter;    // its name; empty: no line names one
  std::string noAdapter;  // the last reason why there is none; empty: no line gives one
  std::string resident;   // the last "GPU-resident status"; empty: no encoder has one
  // Ways over the graphics adapter that were given up for the processor's, as the log words it.
  std::vector<std::string> latches;
  size_t stalls = 0;                // how often an encoder gave nothing any more and was made anew
  bool noEncoder = false;           // none can be had, or none takes the host's pictures
  size_t errorCount = 0;            // of lines of level ERROR and FAULT
  std::vector<std::string> errors;  // the first five

  void Note(const LogEntry& entry);
};

}  // namespace Veldrift
