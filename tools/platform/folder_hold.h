// A folder that lasts as long as a run: held by a mark in it, so that others can tell whether the
// run still is, also if it was killed.
//
// Threads: one thread at a time.
#pragma once

#include <filesystem>
#include <memory>

namespace Veldrift {

class FolderHold {
 public:
  enum class State {
    Held,
    Left,      // whoever held it is gone
    Unmarked,  // nobody has held it yet, as far as one can tell
  };

  // Null: it is held already, or no mark can be made. Where a program takes this one's place, it
  // holds the folder on.
  static std::unique_ptr<FolderHold> Take(const std::filesystem::path& folder);
  static State Look(const std::filesystem::path& folder);

  // Leaves it. The mark stays.
  virtual ~FolderHold() = default;

  static constexpr const char* kMark = "in-use";
};

}  // namespace Veldrift
