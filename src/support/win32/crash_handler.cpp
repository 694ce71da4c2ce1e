#include "platform/win32/windows_headers.h"
// The rest needs windows.h before it.
#include <dbghelp.h>
#include <knownfolders.h>
#include <shlobj.h>

#include <atomic>
#include <cwchar>
#include <string>

#include "support/crash_handler_system.h"
#include "support/paths.h"

namespace Veldrift {
namespace {

constexpr DWORD kHeapCorruption = 0xC0000374;
constexpr size_t kFolderSize = 600;
constexpr size_t kPathSize = kFolderSize + 64;

constexpr auto kDumpType = static_cast<MINIDUMP_TYPE>(
    MiniDumpWithDataSegs | MiniDumpWithHandleData | MiniDumpWithUnloadedModules |
    MiniDumpWithProcessThreadData | MiniDumpWithThreadInfo);
static_assert(kDumpType == 0x1125);

// Plain arrays: nothing of this is destroyed while a crash may still come.
struct DumpFolder {
  wchar_t parent[kFolderSize];  // empty: there is nothing to make
  wchar_t path[kFolderSize];
};
DumpFolder dumpFolder{};

std::atomic<LPTOP_LEVEL_EXCEPTION_FILTER> previousFilter = nullptr;

// Not null on a thread that is logging a fault.
DWORD loggingSlot = TLS_OUT_OF_INDEXES;

// ---- The line -----------------------------------------------------------------------------------

bool IsLogged(DWORD code) {
  return code == EXCEPTION_ACCESS_VIOLATION || code == EXCEPTION_ILLEGAL_INSTRUCTION ||
         code == EXCEPTION_INT_DIVIDE_BY_ZERO || code == kHeapCorruption;
}

// Which module holds an address, and where in it.
struct CodePlace {
  char path[MAX_PATH] = "";
  const char* module = "?";
  size_t offset = 0;
};

void FindPlace(const void* address, CodePlace& place) {
  HMODULE module = nullptr;
  if (!GetModuleHandleExA(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          static_cast<const char*>(address), &module) ||
      GetModuleFileNameA(module, place.path, MAX_PATH) == 0) {
    return;
  }
  place.path[MAX_PATH - 1] = '\0';
  place.module = place.path;
  for (const char* at = place.path; *at != '\0'; ++at) {
    if (*at == '\\' || *at == '/') place.module = at + 1;
  }
  place.offset = reinterpret_cast<size_t>(address) - reinterpret_cast<size_t>(module);
}

// Apart from the handler, whose own frame must stay small for the end of an overflown stack.
[[gnu::noinline]] void LogFault(const EXCEPTION_RECORD& fault) {
  CodePlace place;
  FindPlace(fault.ExceptionAddress, place);
  PluginLog(kCrashLog, kLogFault,
            "[VEH] fatal exception code=0x%08lX addr=%p module=%s+0x%zx tid=%lu",
            fault.ExceptionCode, fault.ExceptionAddress, place.module, place.offset,
            GetCurrentThreadId());
}

// A fault in the logging itself must not log again: it would go on until the stack is used up.
void LogFaultOnce(const EXCEPTION_RECORD& fault) {
  const DWORD error = GetLastError();
  if (TlsGetValue(loggingSlot) == nullptr) {
    TlsSetValue(loggingSlot, &loggingSlot);
    LogFault(fault);
    TlsSetValue(loggingSlot, nullptr);
  }
  SetLastError(error);
}

LONG CALLBACK OnException(EXCEPTION_POINTERS* exception) {
  const DWORD code = exception->ExceptionRecord->ExceptionCode;
  if (code == EXCEPTION_STACK_OVERFLOW) {
    OutputDebugStringA("[Veldrift][VEH] STACK_OVERFLOW — minidump has context\n");
  } else if (IsLogged(code)) {
    LogFaultOnce(*exception->ExceptionRecord);
  }
  return EXCEPTION_CONTINUE_SEARCH;
}

// ---- The dump -----------------------------------------------------------------------------------

HANDLE CreateDump(wchar_t (&path)[kPathSize]) {
  if (dumpFolder.parent[0] != L'\0') {
    CreateDirectoryW(dumpFolder.parent, nullptr);
    CreateDirectoryW(dumpFolder.path, nullptr);
  }
  SYSTEMTIME now{};
  GetLocalTime(&now);
  std::swprintf(path, kPathSize, L"%ls\\%04u-%02u-%02u_%02u-%02u-%02u_%lu.dmp", dumpFolder.path,
                unsigned{now.wYear}, unsigned{now.wMonth}, unsigned{now.wDay}, unsigned{now.wHour},
                unsigned{now.wMinute}, unsigned{now.wSecond}, GetCurrentProcessId());
  return CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                     nullptr);
}

void WriteDump(EXCEPTION_POINTERS* exception) {
  wchar_t path[kPathSize];
  const HANDLE file = CreateDump(path);
  if (file == INVALID_HANDLE_VALUE) return;
  MINIDUMP_EXCEPTION_INFORMATION information{GetCurrentThreadId(), exception, FALSE};
  const BOOL written = MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file,
                                         kDumpType, &information, nullptr, nullptr);
  CloseHandle(file);
  wchar_t text[kPathSize + 64];
  std::swprintf(text, kPathSize + 64, L"%ls%ls\n",
                written ? L"[Veldrift] crash dump: " : L"[Veldrift] crash dump WRITE FAILED at: ",
                path);
  OutputDebugStringW(text);
}

LONG WINAPI OnUnhandledException(EXCEPTION_POINTERS* exception) {
  WriteDump(exception);
  const auto previous = previousFilter.load();
  return previous != nullptr ? previous(exception) : EXCEPTION_CONTINUE_SEARCH;
}

// ---- Installation -------------------------------------------------------------------------------

// The user's local application data; empty if it can't be had.
std::wstring LocalFolder() {
  if (const auto moved = MovedLocalFolder()) return moved->native();
  PWSTR folder = nullptr;
  const HRESULT result = SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, &folder);
  std::wstring text;
  if (SUCCEEDED(result) && folder != nullptr) text = folder;
  CoTaskMemFree(folder);
  return text;
}

void ChooseDumpFolder() {
  const std::wstring local = LocalFolder();
  const std::wstring parent = local + L"\\Veldrift";
  const std::wstring path = parent + L"\\crashes";
  if (local.empty() || path.size() >= kFolderSize) {
    std::wcscpy(dumpFolder.path, L".");
    return;
  }
  std::wcscpy(dumpFolder.parent, parent.c_str());
  std::wcscpy(dumpFolder.path, path.c_str());
}

}  // namespace

void InstallSystemCrashHandlers() {
  constexpr ULONG kFirst = 1;
  ChooseDumpFolder();
  loggingSlot = TlsAlloc();
  AddVectoredExceptionHandler(kFirst, OnException);
  previousFilter = SetUnhandledExceptionFilter(OnUnhandledException);
}

}  // namespace Veldrift
