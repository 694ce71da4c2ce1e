// Everything but the installation runs on a thread that has crashed, anywhere in anybody's code,
// perhaps with a lock of ours held or with the heap broken: no allocation and no lock of ours.
#include "platform/win32/windows_headers.h"

#include <atomic>

#include "support/crash_handler_system.h"
#include "support/fault_line.h"
#include "support/report_turn.h"
#include "support/win32/crash_dump.h"
#include "support/win32/crash_log.h"

namespace Veldrift {
namespace {

constexpr DWORD kHeapCorruption = 0xC0000374;

// ---- The line -----------------------------------------------------------------------------------

// Not null on a thread that is logging a fault.
DWORD loggingSlot = TLS_OUT_OF_INDEXES;

bool IsLogged(DWORD code) {
  return code == EXCEPTION_ACCESS_VIOLATION || code == EXCEPTION_ILLEGAL_INSTRUCTION ||
         code == EXCEPTION_INT_DIVIDE_BY_ZERO || code == kHeapCorruption;
}

CalendarTime Now() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, now.wMilliseconds};
}

// The file name of what holds an address, in UTF-8, and where in it; "?" and 0 if there is none.
struct CodePlace {
  char name[3 * MAX_PATH];
  std::string_view module = "?";
  size_t offset = 0;
};

void FindPlace(const void* address, CodePlace& place) {
  HMODULE module = nullptr;
  wchar_t path[MAX_PATH];
  if (!GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          static_cast<const wchar_t*>(address), &module)) {
    return;
  }
  const std::wstring_view full(path, GetModuleFileNameW(module, path, MAX_PATH));
  const std::wstring_view name = full.substr(full.find_last_of(L"\\/") + 1);
  const int length = WideCharToMultiByte(CP_UTF8, 0, name.data(), static_cast<int>(name.size()),
                                         place.name, sizeof place.name, nullptr, nullptr);
  if (length <= 0) return;
  place.module = {place.name, static_cast<size_t>(length)};
  place.offset = reinterpret_cast<size_t>(address) - reinterpret_cast<size_t>(module);
}

// Apart from the handler, whose own frame must stay small for the end of an overflown stack.
[[gnu::noinline]] void LogFault(const EXCEPTION_RECORD& fault) {
  const auto address = reinterpret_cast<uint64_t>(fault.ExceptionAddress);
  CodePlace place;
  FindPlace(fault.ExceptionAddress, place);
  FixedText line = FormatFaultLine(Now(), {.code = fault.ExceptionCode,
                                           .address = FixedText().AddHex(address, 16),
                                           .module = place.module,
                                           .offset = place.offset,
                                           .thread = GetCurrentThreadId()});
  AppendToFaultLog(line.View());
  OutputDebugStringA(line.CString());
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

ReportTurn turn;

bool BeginReport() {
  constexpr int kMostPauses = 3000;
  constexpr DWORD kPauseMillis = 10;
  if (IsCrashDumpThread()) {
    turn.GiveUp();
    return false;
  }
  return turn.Begin(GetCurrentThreadId(), kMostPauses, [] { Sleep(kPauseMillis); });
}

void WriteReport(EXCEPTION_POINTERS* exception) {
  if (exception->ExceptionRecord->ExceptionCode == EXCEPTION_STACK_OVERFLOW) {
    WriteCrashDumpElsewhere(exception);
  } else {
    WriteCrashDump(exception);
  }
}

std::atomic<LPTOP_LEVEL_EXCEPTION_FILTER> previousFilter = nullptr;
std::atomic<bool> previousKnown = false;

LONG AskPrevious(EXCEPTION_POINTERS* exception) {
  // A crash in the instant of the installation comes before the system has told what was there.
  for (int pauses = 0; !previousKnown && pauses < 1000; ++pauses) Sleep(1);
  const auto previous = previousFilter.load();
  return previous != nullptr ? previous(exception) : EXCEPTION_CONTINUE_SEARCH;
}

LONG WINAPI OnUnhandledException(EXCEPTION_POINTERS* exception) {
  const bool reports = BeginReport();
  if (reports) WriteReport(exception);
  const LONG answer = AskPrevious(exception);
  // With any other answer the process ends, and no other thread may begin a report, which would
  // replace this one by half of its own.
  if (reports && answer == EXCEPTION_CONTINUE_EXECUTION) turn.End(GetCurrentThreadId());
  return answer;
}

}  // namespace

void InstallSystemCrashHandlers() {
  constexpr ULONG kFirst = 1;
  PrepareFaultLog();
  PrepareCrashDumps();
  loggingSlot = TlsAlloc();
  AddVectoredExceptionHandler(kFirst, OnException);
  previousFilter = SetUnhandledExceptionFilter(OnUnhandledException);
  previousKnown = true;
}

}  // namespace Veldrift
