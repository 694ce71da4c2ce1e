#include "support/win32/crash_dump.h"
// The rest needs windows.h before it.
#include <dbghelp.h>
#include <knownfolders.h>
#include <shlobj.h>

#include <cwchar>
#include <string>

#include "platform/win32/handle.h"
#include "support/paths.h"

namespace Veldrift {
namespace {

constexpr size_t kFolderSize = 600;
constexpr size_t kPathSize = kFolderSize + 64;
constexpr SIZE_T kDumperStackBytes = 256 * 1024;

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

// What crashed: who asks for the dump, and about what.
struct Crash {
  EXCEPTION_POINTERS* exception;
  DWORD thread;
};

Handle CreateDump(wchar_t (&path)[kPathSize]) {
  if (dumpFolder.parent[0] != L'\0') {
    CreateDirectoryW(dumpFolder.parent, nullptr);
    CreateDirectoryW(dumpFolder.path, nullptr);
  }
  SYSTEMTIME now{};
  GetLocalTime(&now);
  std::swprintf(path, kPathSize, L"%ls\\%04u-%02u-%02u_%02u-%02u-%02u_%lu.dmp", dumpFolder.path,
                unsigned{now.wYear}, unsigned{now.wMonth}, unsigned{now.wDay}, unsigned{now.wHour},
                unsigned{now.wMinute}, unsigned{now.wSecond}, GetCurrentProcessId());
  return Handle(
      CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
}

void Tell(const wchar_t* what, const wchar_t* path) {
  wchar_t text[kPathSize + 64];
  std::swprintf(text, kPathSize + 64, L"%ls%ls\n", what, path);
  OutputDebugStringW(text);
}

void Write(const Crash& crash) {
  wchar_t path[kPathSize];
  BOOL written = FALSE;
  {
    const Handle file = CreateDump(path);
    if (!file) return;
    MINIDUMP_EXCEPTION_INFORMATION information{crash.thread, crash.exception, FALSE};
    written = MiniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file.Get(), kDumpType,
                                &information, nullptr, nullptr);
  }
  Tell(written ? L"[Veldrift] crash dump: " : L"[Veldrift] crash dump WRITE FAILED at: ", path);
}

// ---- The thread for those without a stack -------------------------------------------------------

// Never destroyed: it outlives everything that could crash.
struct Dumper {
  const Handle wanted{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
  const Handle done{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
  Crash crash{};  // set before `wanted`
  DWORD number = 0;
  Handle thread;
};
Dumper* dumper = nullptr;

DWORD WINAPI WriteWhenWanted(void* context) {
  Dumper& self = *static_cast<Dumper*>(context);
  SetEvent(self.done.Get());
  while (WaitForSingleObject(self.wanted.Get(), INFINITE) == WAIT_OBJECT_0) {
    Write(self.crash);
    SetEvent(self.done.Get());
  }
  return 0;
}

// Waits until the thread runs: a dump stops all other threads, and one that is still being started
// may hold the loader's lock, which the dump needs.
void StartDumper() {
  constexpr DWORD kMostMillis = 5'000;
  auto* const made = new Dumper;
  if (made->wanted && made->done) {
    made->thread = Handle(CreateThread(nullptr, kDumperStackBytes, WriteWhenWanted, made,
                                       STACK_SIZE_PARAM_IS_A_RESERVATION, &made->number));
  }
  if (made->thread) {
    WaitForSingleObject(made->done.Get(), kMostMillis);
    dumper = made;
  } else {
    delete made;
  }
}

// ---- Where they go ------------------------------------------------------------------------------

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

void PrepareCrashDumps() {
  ChooseDumpFolder();
  StartDumper();
}

void WriteCrashDump(EXCEPTION_POINTERS* exception) { Write({exception, GetCurrentThreadId()}); }

// Without the thread, which only the process's end takes away, there is no dump.
void WriteCrashDumpElsewhere(EXCEPTION_POINTERS* exception) {
  if (dumper == nullptr) return;
  ResetEvent(dumper->done.Get());
  dumper->crash = {exception, GetCurrentThreadId()};
  SetEvent(dumper->wanted.Get());
  const HANDLE either[] = {dumper->done.Get(), dumper->thread.Get()};
  WaitForMultipleObjects(2, either, FALSE, INFINITE);
}

bool IsCrashDumpThread() { return dumper != nullptr && dumper->number == GetCurrentThreadId(); }

}  // namespace Veldrift
