// "transitions.csv": one line for each completed change of encoder, appended to over all runs.
#pragma once

#include <cstdint>
#include <string>

namespace Veldrift {

// Stands for "no value" in a duration that has its column empty.
inline constexpr double kNoDuration = -1.0;

inline constexpr const char* kTransitionModeSeamless = "Seamless";
inline constexpr const char* kTransitionModeConservative = "Conservative";

struct TransitionRecord {
  const char* mode = kTransitionModeSeamless;
  int32_t fromWidth = 0;
  int32_t fromHeight = 0;
  int32_t toWidth = 0;
  int32_t toHeight = 0;
  double cloneMs = kNoDuration;
  double firstKeyMs = kNoDuration;
  double swapMs = kNoDuration;
  double totalMs = 0.0;
  int32_t framesDropped = 0;
  const char* error = "";
};

// The record as a line of the file, with its line end. `nowNanos` is steady time.
std::string FormatTransition(const TransitionRecord& record, int64_t nowNanos);

// Appends the record to "transitions.csv", behind a header if the file is new. A file that can't be
// opened loses the line, silently.
//
// Threads: any thread, also under the pipeline's locks: its one mutex is a leaf.
void WriteTransition(const TransitionRecord& record, int64_t nowNanos);

}  // namespace Veldrift
