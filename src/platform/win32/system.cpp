#include "platform/system.h"

#include "platform/win32/windows_headers.h"
// The rest needs windows.h before it.
#include <bcrypt.h>
#include <knownfolders.h>
#include <rpc.h>
#include <shlobj.h>
#include <tlhelp32.h>

#include <algorithm>
#include <vector>

#include "platform/file.h"
#include "platform/folders.h"
#include "platform/win32/handle.h"

namespace Veldrift {
namespace {

std::optional<std::string> RoamingKnownFolder() {
  PWSTR folder = nullptr;
  const HRESULT result = SHGetKnownFolderPath(FOLDERID_RoamingAppData, 0, nullptr, &folder);
  std::optional<std::string> text;
  if (SUCCEEDED(result) && folder != nullptr) text = NarrowText(folder);
  CoTaskMemFree(folder);
  return text;
}

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

// Where the system has only that list, as Wine 8 does.
uint32_t CountHandlesInList() {
  constexpr ULONG kExtendedHandleInformation = 64;
  constexpr LONG kLengthMismatch = static_cast<LONG>(0xC0000004);
  using Query = LONG(WINAPI*)(ULONG, PVOID, ULONG, PULONG);
  const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(
      GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
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

std::optional<std::string> GetEnvironment(const char* name) {
  const std::wstring wideName = WideText(name);
  // The length 0 stands for an empty value too: the last error tells the two apart.
  SetLastError(ERROR_SUCCESS);
  const DWORD size = GetEnvironmentVariableW(wideName.c_str(), nullptr, 0);
  if (size == 0) {
    if (GetLastError() == ERROR_ENVVAR_NOT_FOUND) return std::nullopt;
    return "";
  }
  std::wstring value(size, L'\0');
  const DWORD length = GetEnvironmentVariableW(wideName.c_str(), value.data(), size);
  value.resize(length < size ? length : 0);
  return NarrowText(value);
}

void SetEnvironment(const char* name, const std::optional<std::string>& value) {
  SetEnvironmentVariableW(WideText(name).c_str(), value ? WideText(*value).c_str() : nullptr);
}

std::filesystem::path GetExecutablePath() {
  wchar_t buffer[520] = L"";
  const DWORD length = GetModuleFileNameW(nullptr, buffer, 520);
  return std::wstring(buffer, length < 520 ? length : 519);
}

std::filesystem::path FindRoamingFolder() {
  return PathFromText(WindowsRoamingFolder(RoamingKnownFolder(), GetEnvironment));
}

std::filesystem::path FindLocalFolder() { return PathFromText(WindowsLocalFolder(GetEnvironment)); }

std::string GetComputerName() {
  DWORD size = 0;
  GetComputerNameExW(ComputerNameDnsHostname, nullptr, &size);
  if (size == 0) return {};
  std::wstring name(size, L'\0');
  if (!GetComputerNameExW(ComputerNameDnsHostname, name.data(), &size)) return {};
  std::string text = NarrowText(std::wstring_view(name).substr(0, size));
  text.erase(text.find_last_not_of('\0') + 1);
  return text;
}

bool FillRandom(std::span<std::byte> buffer) {
  return BCryptGenRandom(nullptr, reinterpret_cast<UCHAR*>(buffer.data()),
                         static_cast<ULONG>(buffer.size()), BCRYPT_USE_SYSTEM_PREFERRED_RNG) >= 0;
}

std::optional<std::array<uint8_t, 16>> CreateUuid() {
  UUID uuid{};
  const RPC_STATUS status = UuidCreate(&uuid);
  if (status != RPC_S_OK && status != RPC_S_UUID_LOCAL_ONLY) return std::nullopt;
  std::array<uint8_t, 16> bytes{};
  for (unsigned i = 0; i < 4; ++i) bytes[i] = static_cast<uint8_t>(uuid.Data1 >> (24 - 8 * i));
  for (unsigned i = 0; i < 2; ++i) {
    bytes[4 + i] = static_cast<uint8_t>(uuid.Data2 >> (8 - 8 * i));
    bytes[6 + i] = static_cast<uint8_t>(uuid.Data3 >> (8 - 8 * i));
  }
  for (unsigned i = 0; i < 8; ++i) bytes[8 + i] = uuid.Data4[i];
  return bytes;
}

uint32_t ThreadNumber() { return GetCurrentThreadId(); }

uint32_t ProcessNumber() { return GetCurrentProcessId(); }

CalendarTime GetLocalCalendarTime() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds};
}

void WriteToDebugger(const char* line) { OutputDebugStringA(line); }

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
