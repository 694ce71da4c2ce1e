#include "tests/crash/deaths.h"

#include "platform/win32/windows_headers.h"
// The rest needs windows.h before it.
#include <dbghelp.h>

#include <cstring>
#include <stdexcept>
#include <thread>

#include "tests/crash/instructions.h"

namespace Veldrift {
namespace {

constexpr DWORD kHeapCorruption = 0xC0000374;
constexpr DWORD kOwnException = 0xE0000001;

void CallNowhere() { asm volatile("call *%0" ::"r"(8LL)); }
void CorruptHeap() { RaiseException(kHeapCorruption, EXCEPTION_NONCONTINUABLE, 0, nullptr); }
void DieOnAnotherThread() { std::thread(StoreAtAddressEight).join(); }

// By its code: under Wine a stack that has really run over leaves the handlers no room at all.
void RaiseStackOverflow() { RaiseException(EXCEPTION_STACK_OVERFLOW, 0, 0, nullptr); }

constexpr Death kDeaths[] = {
    {"access violation", StoreAtAddressEight, 0xC0000005, true, "", 0xC0000005},
    {"illegal instruction", ExecuteNonsense, 0xC000001D, true, "", 0xC000001D},
    {"division by zero", DivideByZero, 0xC0000094, true, "", 0xC0000094},
    {"heap corruption", CorruptHeap, 0xC0000374, false,
     "addr=[0-9a-f]{16} module=[a-zA-Z]+\\.dll\\+0x[0-9a-f]+", 0xC0000374},
    {"no module", CallNowhere, 0xC0000005, false, "addr=0000000000000008 module=\\?\\+0x0",
     0xC0000005},
    {"another thread", DieOnAnotherThread, 0xC0000005, true, "", 0xC0000005},
    {"stack overflow", RaiseStackOverflow, 0, true, "", 0xC00000FD},
};

// ---- Handlers of the test's own -----------------------------------------------------------------

LONG WINAPI EndProcess(EXCEPTION_POINTERS*) {
  TerminateProcess(GetCurrentProcess(), kEarlierExit);
  return EXCEPTION_EXECUTE_HANDLER;
}

LONG CALLBACK StepOverTheStore(EXCEPTION_POINTERS* exception) {
  if (exception->ExceptionRecord->ExceptionCode != EXCEPTION_ACCESS_VIOLATION) {
    return EXCEPTION_CONTINUE_SEARCH;
  }
  exception->ContextRecord->Rip += kStoreLength;
  return EXCEPTION_CONTINUE_EXECUTION;
}

LONG CALLBACK ResumeAfterHarmless(EXCEPTION_POINTERS* exception) {
  const DWORD code = exception->ExceptionRecord->ExceptionCode;
  if (code == EXCEPTION_BREAKPOINT) ++exception->ContextRecord->Rip;
  return code == EXCEPTION_BREAKPOINT || code == kOwnException ? EXCEPTION_CONTINUE_EXECUTION
                                                               : EXCEPTION_CONTINUE_SEARCH;
}

constexpr ULONG kLast = 0;

// ---- Reading a minidump -------------------------------------------------------------------------

template <typename T>
bool Read(const std::string& bytes, size_t at, T& value) {
  if (at + sizeof value > bytes.size()) return false;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return true;
}

bool FindStream(const std::string& bytes, ULONG32 type, MINIDUMP_DIRECTORY& found) {
  MINIDUMP_HEADER header{};
  Read(bytes, 0, header);
  for (ULONG32 i = 0; i < header.NumberOfStreams; ++i) {
    if (!Read(bytes, header.StreamDirectoryRva + i * sizeof found, found)) return false;
    if (found.StreamType == type) return true;
  }
  return false;
}

}  // namespace

const char* const kDumpEnding = "dmp";
const bool kDumpsCaughtFaults = false;

std::span<const Death> Deaths() { return kDeaths; }

std::string FaultOfDump(const std::string& bytes, const Death& death) {
  MINIDUMP_HEADER header{};
  if (!Read(bytes, 0, header)) return "too short: " + std::to_string(bytes.size()) + " bytes";
  if (!bytes.starts_with("MDMP")) return "no signature";
  if (header.Flags != 0x1125) return "flags " + std::to_string(header.Flags);
  MINIDUMP_DIRECTORY place{};
  if (!FindStream(bytes, ModuleListStream, place)) return "no list of modules";
  if (!FindStream(bytes, ExceptionStream, place)) return "no exception";
  MINIDUMP_EXCEPTION_STREAM exception{};
  if (!Read(bytes, place.Location.Rva, exception)) return "half an exception";
  const ULONG32 code = exception.ExceptionRecord.ExceptionCode;
  return code == death.killedBy ? "" : "the exception is " + std::to_string(code);
}

void PrepareToDie() { SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX); }

void InstallEarlierHandler() { SetUnhandledExceptionFilter(EndProcess); }

void PrepareToSurvive() { AddVectoredExceptionHandler(kLast, StepOverTheStore); }

void SurviveAccessViolation() { StoreAtAddressEight(); }

void PassHarmlessExceptions() {
  AddVectoredExceptionHandler(kLast, ResumeAfterHarmless);
  try {
    throw std::runtime_error("caught");
  } catch (const std::exception&) {
  }
  asm volatile("int3");
  RaiseException(kOwnException, 0, 0, nullptr);
}

}  // namespace Veldrift
