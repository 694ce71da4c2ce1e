#include "platform/file.h"

#include "platform/win32/handle.h"

namespace Veldrift {
namespace {

// Others may read, write, rename and delete the file while it is open here.
constexpr DWORD kFullSharing = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

Handle Open(const std::filesystem::path& path, DWORD access, DWORD disposition) {
  return Handle(CreateFileW(path.c_str(), access, kFullSharing, nullptr, disposition,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
}

bool Write(const Handle& file, std::string_view bytes) {
  DWORD written = 0;
  return WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) &&
         written == bytes.size();
}

}  // namespace

std::string PathText(const std::filesystem::path& path) { return NarrowText(path.native()); }

std::filesystem::path PathFromText(std::string_view utf8) { return WideText(utf8); }

FileRead ReadWholeFile(const std::filesystem::path& path, std::string& text) {
  text.clear();
  const Handle file = Open(path, GENERIC_READ, OPEN_EXISTING);
  if (!file) {
    const DWORD error = GetLastError();
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ? FileRead::NotFound
                                                                          : FileRead::Failed;
  }
  char block[4096];
  DWORD count = 0;
  while (ReadFile(file.Get(), block, sizeof block, &count, nullptr)) {
    if (count == 0) return FileRead::Read;
    text.append(block, count);
  }
  text.clear();
  return FileRead::Failed;
}

WriteResult WriteWholeFile(const std::filesystem::path& path, std::string_view bytes) {
  const Handle file = Open(path, GENERIC_WRITE, CREATE_ALWAYS);
  if (!file) return WriteResult::OpenFailed;
  // Without the flush a crash of the machine can leave an empty file behind a finished rename.
  const bool written = Write(file, bytes) && FlushFileBuffers(file.Get());
  return written ? WriteResult::Written : WriteResult::WriteFailed;
}

bool ReplaceFile(const std::filesystem::path& from, const std::filesystem::path& to,
                 std::string& error) {
  if (MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED)) {
    return true;
  }
  error = SystemMessage(GetLastError());
  return false;
}

bool AppendToFile(const std::filesystem::path& path, std::string_view bytes) {
  const Handle file = Open(path, FILE_APPEND_DATA, OPEN_ALWAYS);
  if (!file) return false;
  Write(file, bytes);
  return true;
}

}  // namespace Veldrift
