// A place for settings, log and trust that lasts as long as one run, so that the user's own stay
// untouched.
//
// Threads: one thread uses it.
#pragma once

#include <filesystem>

namespace Veldrift {

class TemporaryHome {
 public:
  // Thinks up the name; who uses the folder makes it. Removes what runs that were killed have left.
  TemporaryHome();
  // Make sure that the module, whose log is in it, is gone by then.
  ~TemporaryHome();
  TemporaryHome(const TemporaryHome&) = delete;
  TemporaryHome& operator=(const TemporaryHome&) = delete;

  const std::filesystem::path& Path() const { return path_; }

 private:
  const std::filesystem::path path_;
};

}  // namespace Veldrift
