// A place for settings, log and trust that lasts as long as one run, so that the user's own stay
// untouched. The module stays in its process once it was loaded, with files open, which Windows
// doesn't let go before the process ends: so the run is a process of its own.
//
// Threads: the main thread.
#pragma once

#include <filesystem>

namespace Veldrift {

class TemporaryHome {
 public:
  // Thinks up the name; who uses the folder makes it. Removes what runs that were killed have left.
  TemporaryHome();
  ~TemporaryHome();
  TemporaryHome(const TemporaryHome&) = delete;
  TemporaryHome& operator=(const TemporaryHome&) = delete;

  const std::filesystem::path& Path() const { return path_; }
  // It stays: what is in it is worth a look.
  void Keep() { kept_ = true; }

 private:
  const std::filesystem::path path_;
  bool kept_ = false;
};

// Runs this program again with the same arguments and the option --temporary-home, and removes that
// folder behind it, unless it crashed. The exit code.
int RunInTemporaryHome(int argc, char** argv);

}  // namespace Veldrift
