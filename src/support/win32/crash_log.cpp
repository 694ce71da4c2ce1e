#include "support/win32/crash_log.h"

#include "platform/win32/handle.h"
#include "platform/win32/windows_headers.h"
// Needs windows.h before it.
#include <winternl.h>

#include <cwchar>
#include <string>

#include "support/paths.h"

namespace Veldrift {
namespace {

// CreateFileW makes its native path on the heap, which may be what is broken: the native call takes
// one that is ready.
constexpr size_t kPathSize = 1024;
wchar_t nativePath[kPathSize];  // empty: there is no log
UNICODE_STRING nativeName{};

std::wstring NativePath(const std::wstring& path) {
  constexpr const wchar_t* kRoot = L"\\??\\";
  if (path.starts_with(L"\\\\?\\")) return kRoot + path.substr(4);
  if (path.starts_with(L"\\\\")) return kRoot + (L"UNC" + path.substr(1));
  return kRoot + path;
}

Handle OpenLog() {
  OBJECT_ATTRIBUTES attributes{};
  InitializeObjectAttributes(&attributes, &nativeName, OBJ_CASE_INSENSITIVE, nullptr, nullptr);
  HANDLE file = nullptr;
  IO_STATUS_BLOCK ignored{};
  const NTSTATUS status = NtCreateFile(
      &file, FILE_APPEND_DATA | SYNCHRONIZE, &attributes, &ignored, nullptr, FILE_ATTRIBUTE_NORMAL,
      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, FILE_OPEN_IF,
      FILE_SYNCHRONOUS_IO_NONALERT | FILE_NON_DIRECTORY_FILE, nullptr, 0);
  return Handle(status >= 0 ? file : nullptr);
}

}  // namespace

void PrepareFaultLog() {
  std::error_code failed;
  const auto path = std::filesystem::absolute(GetPluginLogPath(), failed).lexically_normal();
  if (failed) return;
  const std::wstring native = NativePath(std::filesystem::path(path).make_preferred().native());
  if (native.size() >= kPathSize) return;
  std::wcscpy(nativePath, native.c_str());
  nativeName.Buffer = nativePath;
  nativeName.Length = static_cast<USHORT>(native.size() * sizeof(wchar_t));
  nativeName.MaximumLength = nativeName.Length;
}

void AppendToFaultLog(std::string_view bytes) {
  if (nativeName.Length == 0) return;
  const Handle file = OpenLog();
  DWORD written = 0;
  if (file) {
    WriteFile(file.Get(), bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
  }
}

}  // namespace Veldrift
