#include "tools/platform/folder_hold.h"

#include <utility>

#include "platform/win32/handle.h"

namespace Veldrift {
namespace {

class OpenMark : public FolderHold {
 public:
  explicit OpenMark(Handle mark) : mark_(std::move(mark)) {}

 private:
  const Handle mark_;
};

// Nobody else can have it open as well.
Handle OpenAlone(const std::filesystem::path& mark, DWORD how) {
  return Handle(CreateFileW(mark.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, how,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
}

}  // namespace

std::unique_ptr<FolderHold> FolderHold::Take(const std::filesystem::path& folder) {
  Handle mark = OpenAlone(folder / kMark, OPEN_ALWAYS);
  if (!mark) return nullptr;
  return std::make_unique<OpenMark>(std::move(mark));
}

FolderHold::State FolderHold::Look(const std::filesystem::path& folder) {
  if (OpenAlone(folder / kMark, OPEN_EXISTING)) return State::Left;
  return GetLastError() == ERROR_SHARING_VIOLATION ? State::Held : State::Unmarked;
}

}  // namespace Veldrift
