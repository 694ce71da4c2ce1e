// What the module's setup says where it has no window: the text file that it keeps up to date.
//
// Threads: the main thread.
#pragma once

#include <filesystem>
#include <string>

namespace Veldrift {

// The text that a user has seen against the one that is there now: all of it where its lines have
// become more or fewer, else each line that has changed, behind the heading that it stands under.
// Both are lines that end in "\n"; a heading is the first line, and each one behind an empty line.
std::string ChangesOf(const std::string& seen, const std::string& text);

class SetupView {
 public:
  // A file that an earlier run left behind is removed.
  explicit SetupView(const std::filesystem::path& file);

  // What is new since the last call, to be shown; empty if nothing is.
  std::string Take();

  // Whether there was ever anything to show.
  bool Shown() const { return !seen_.empty(); }

 private:
  const std::filesystem::path file_;
  std::string seen_;
};

}  // namespace Veldrift
