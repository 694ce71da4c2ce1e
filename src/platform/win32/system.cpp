#include "platform/system.h"

#include "platform/win32/windows_headers.h"
// The rest needs windows.h before it.
#include <bcrypt.h>
#include <knownfolders.h>
#include <rpc.h>
#include <shlobj.h>

#include <algorithm>

#include "platform/calendar.h"
#include "platform/file.h"
#include "platform/folders.h"

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

CalendarTime LocalTime(int64_t wallClockMillis) {
  // File times count units of 100 ns from the beginning of 1601.
  constexpr int64_t kUnitsPerMilli = 10'000;
  constexpr int64_t kMillisBefore1970 = 11'644'473'600'000;
  const auto units = static_cast<uint64_t>((wallClockMillis + kMillisBefore1970) * kUnitsPerMilli);
  const FILETIME utc{static_cast<DWORD>(units), static_cast<DWORD>(units >> 32)};
  FILETIME local{};
  SYSTEMTIME parts{};
  FileTimeToLocalFileTime(&utc, &local);
  FileTimeToSystemTime(&local, &parts);
  return {parts.wYear,   parts.wMonth,  parts.wDay,         parts.wHour,
          parts.wMinute, parts.wSecond, parts.wMilliseconds};
}

// The standard library's sleep cuts to whole milliseconds here: one below that would be none.
void SleepNanos(int64_t nanos) {
  constexpr int64_t kNanosPerMilli = 1'000'000;
  const int64_t millis = (std::max<int64_t>(nanos, 0) + kNanosPerMilli - 1) / kNanosPerMilli;
  Sleep(static_cast<DWORD>(std::min<int64_t>(millis, INFINITE - 1)));
}

void WriteToDebugger(const char* line) { OutputDebugStringA(line); }

}  // namespace Veldrift
