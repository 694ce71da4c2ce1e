#include "tools/platform/this_process.h"

#include "platform/win32/handle.h"
#include "platform/win32/windows_headers.h"
// Needs windows.h before it.
#include <tlhelp32.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace Veldrift {
namespace {

// The system's list of all handles, of all processes.
struct HandleEntry {
  PVOID object;
  ULONG_PTR process;
  ULONG_PTR handle;
  ULONG access;
  USHORT creatorIndex;
  USHORT type;
  ULONG attributes;
  ULONG reserved;
};
struct HandleTable {
  ULONG_PTR count;
  ULONG_PTR reserved;
  HandleEntry entries[1];
};

template <typename Function>
Function FromNtdll(const char* name) {
  return reinterpret_cast<Function>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), name)));
}

// Where the system has only that list, as Wine 8 does.
uint32_t CountHandlesInList() {
  constexpr ULONG kExtendedHandleInformation = 64;
  constexpr LONG kLengthMismatch = static_cast<LONG>(0xC0000004);
  using Query = LONG(WINAPI*)(ULONG, PVOID, ULONG, PULONG);
  const auto query = FromNtdll<Query>("NtQuerySystemInformation");
  if (query == nullptr) return 0;
  std::vector<std::byte> buffer(1 << 16);
  LONG status = kLengthMismatch;
  while ((status = query(kExtendedHandleInformation, buffer.data(), ULONG(buffer.size()),
                         nullptr)) == kLengthMismatch) {
    buffer.resize(buffer.size() * 2);
  }
  if (status != 0) return 0;
  const auto* table = reinterpret_cast<const HandleTable*>(buffer.data());
  return uint32_t(std::count_if(table->entries, table->entries + table->count, [](auto& entry) {
    return entry.process == GetCurrentProcessId();
  }));
}

uint32_t CountHandles() {
  DWORD handles = 0;
  if (GetProcessHandleCount(GetCurrentProcess(), &handles) && handles != 0) return handles;
  return CountHandlesInList();
}

}  // namespace

void SetEnvironment(const char* name, const std::optional<std::string>& value) {
  SetEnvironmentVariableW(WideText(name).c_str(), value ? WideText(*value).c_str() : nullptr);
}

uint32_t ProcessNumber() { return GetCurrentProcessId(); }

// The version that the system tells is cut to what the program's manifest knows; this one isn't.
std::string SystemName() {
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof version;
  if (const auto query = FromNtdll<LONG(WINAPI*)(OSVERSIONINFOW*)>("RtlGetVersion"))
    query(&version);
  std::string name = "windows " + std::to_string(version.dwMajorVersion) + "." +
                     std::to_string(version.dwMinorVersion) + "." +
                     std::to_string(version.dwBuildNumber);
  if (const auto wine = FromNtdll<const char* (*)()>("wine_get_version")) {
    name += std::string(" (wine ") + wine() + ")";
  }
  return name;
}

double ProcessCpuSeconds() {
  FILETIME created{}, ended{}, kernel{}, user{};
  GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user);
  const auto seconds = [](const FILETIME& time) {
    constexpr double kUnitsPerSecond = 1e7;
    return (static_cast<double>(time.dwHighDateTime) * 4294967296.0 +
            static_cast<double>(time.dwLowDateTime)) /
           kUnitsPerSecond;
  };
  return seconds(kernel) + seconds(user);
}

// This system's steady clock goes on while the machine sleeps.
int64_t SleptNanos() { return 0; }

ProcessResources CountProcessResources() {
  ProcessResources resources;
  resources.handles = CountHandles();
  const Handle snapshot(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0));
  THREADENTRY32 thread{};
  thread.dwSize = sizeof thread;
  for (BOOL more = snapshot && Thread32First(snapshot.Get(), &thread); more;
       more = Thread32Next(snapshot.Get(), &thread)) {
    if (thread.th32OwnerProcessID == GetCurrentProcessId()) ++resources.threads;
  }
  return resources;
}

}  // namespace Veldrift
