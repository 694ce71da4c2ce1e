// Reads the logs of runs and says what came of them. A run NAME has left NAME.send and
// NAME.receive.
#pragma once

#include <string>
#include <vector>

namespace Veldrift {

// How long the frames took from the sender's tick until they were whole, ours beside bare ones,
// with the pacer's wire time. 0, or 1 after a sentence on the standard error.
int CompareDelays(const std::vector<std::string>& paced, const std::vector<std::string>& bare);

// How many frames of each run were not repaired, beside what an ideal code of the same parity would
// have left at random loss of that percentage.
int CompareRepair(const std::vector<std::string>& runs, const std::vector<double>& lossPercent);

}  // namespace Veldrift
