// Finds the six digits of a pairing that is under way in the plug-in's log, where no screen shows
// them. Only lines count that were written after this object was made: an old challenge's code is
// of no use.
//
// Threads: one thread uses it.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace Veldrift {

class PairingCodeLog {
 public:
  // `phoneName` is the name that the phone gives itself; challenges of others are left alone.
  PairingCodeLog(std::filesystem::path file, std::string phoneName);

  // The newest code in what has been written since; nothing yet if there is none.
  std::optional<std::string> Find() const;

 private:
  const std::filesystem::path file_;
  const std::string phoneName_;
  const size_t skip_;  // the file's size at the start
};

}  // namespace Veldrift
