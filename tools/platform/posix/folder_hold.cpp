#include "tools/platform/folder_hold.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/posix/descriptor.h"

namespace Veldrift {
namespace {

class LockedMark : public FolderHold {
 public:
  explicit LockedMark(Descriptor mark) : mark_(std::move(mark)) {}

 private:
  const Descriptor mark_;
};

}  // namespace

// Something is written to it only behind the lock: one that is empty may be about to be locked. It
// stays open when another program takes this one's place.
std::unique_ptr<FolderHold> FolderHold::Take(const std::filesystem::path& folder) {
  Descriptor mark(open((folder / kMark).c_str(), O_RDWR | O_CREAT, 0600));
  if (!mark || flock(mark.Get(), LOCK_EX | LOCK_NB) != 0) return nullptr;
  if (write(mark.Get(), "1", 1) != 1) return nullptr;
  return std::make_unique<LockedMark>(std::move(mark));
}

FolderHold::State FolderHold::Look(const std::filesystem::path& folder) {
  const Descriptor mark(open((folder / kMark).c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status {};
  if (!mark || fstat(mark.Get(), &status) != 0 || status.st_size == 0) return State::Unmarked;
  return flock(mark.Get(), LOCK_EX | LOCK_NB) == 0 ? State::Left : State::Held;
}

}  // namespace Veldrift
