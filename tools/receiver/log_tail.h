// What is written to the plug-in's log from now on.
//
// Threads: one thread uses it.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace Veldrift {

class LogTail {
 public:
  explicit LogTail(std::filesystem::path file);

  // What stands behind `marker` in each whole line written since, oldest first.
  std::vector<std::string> AllBehind(std::string_view marker) const;

 private:
  const std::filesystem::path file_;
  const size_t skip_;  // the file's size at the start
};

}  // namespace Veldrift
