// Finds the six digits of a pairing that is under way in the plug-in's log, where no screen shows
// them. Only lines count that were written after this object was made: an old challenge's code is
// of no use.
//
// Threads: one thread uses it.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tools/receiver/log_tail.h"

namespace Veldrift {

struct PairingChallenge {
  std::string code;       // six digits
  std::string phoneName;  // as the phone calls itself
};

// The challenges in what `log` has seen, oldest first.
std::vector<PairingChallenge> ChallengesIn(const LogTail& log);

class PairingCodeLog {
 public:
  // `phoneName` is the name that the phone gives itself; challenges of others are left alone.
  PairingCodeLog(std::filesystem::path file, std::string phoneName);

  // The newest code in what has been written since; nothing yet if there is none.
  std::optional<std::string> Find() const;

 private:
  const LogTail log_;
  const std::string phoneName_;
};

}  // namespace Veldrift
