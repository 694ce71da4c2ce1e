#include "tests/crash/deaths.h"

#include <setjmp.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <thread>

#include "tests/crash/instructions.h"

namespace Veldrift {
namespace {

sigjmp_buf safety;

// The first address that the machine never maps.
void CallNowhere() { asm volatile("call *%0" ::"r"(8L)); }

__attribute__((noinline, no_sanitize("address", "undefined", "thread"))) int Descend(int depth) {
  char room[4096];
  if (depth < 0) return 0;
  asm volatile("" ::"r"(room) : "memory");  // all of it is needed
  return Descend(depth + 1) + room[0];
}
void OverflowStack() { Descend(0); }

void DieOnAnotherThread() { std::thread(StoreAtAddressEight).join(); }

void Handle(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigaction(signal, &action, nullptr);
}

constexpr Death kDeaths[] = {
    {"access violation", StoreAtAddressEight, SIGSEGV, true, "", SIGSEGV},
    {"illegal instruction", ExecuteNonsense, SIGILL, true, "", SIGILL},
    {"division by zero", DivideByZero, SIGFPE, true, "", SIGFPE},
    {"abort", std::abort, SIGABRT, false, "addr=0x[0-9a-f]+ module=libc\\.so\\.6\\+0x[0-9a-f]+",
     SIGABRT},
    {"no module", CallNowhere, SIGSEGV, false, "addr=0x8 module=\\?\\+0x0", SIGSEGV},
    {"stack overflow", OverflowStack, SIGSEGV, true, "", SIGSEGV},
    {"another thread", DieOnAnotherThread, SIGSEGV, true, "", SIGSEGV},
};

}  // namespace

const char* const kDumpEnding = "txt";
const bool kDumpsCaughtFaults = true;

std::span<const Death> Deaths() { return kDeaths; }

std::string FaultOfDump(const std::string& bytes, const Death& death) {
  const std::string first = death.inProgram ? "\n#0 0x" : "\nback-trace\n";
  for (const std::string& part : {"signal " + std::to_string(death.code) + " SIG",
                                  std::string("\nregisters\nrip 0x"), std::string("/crash_test\n"),
                                  std::string(" crash_test+0x"), first, std::string("\nmaps\n")}) {
    if (bytes.find(part) == std::string::npos) return "lacks " + part + "\n" + bytes;
  }
  return bytes.ends_with("\nend\n") ? "" : "isn't finished:\n" + bytes;
}

void PrepareToDie() {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
}

void InstallEarlierHandler() {
  Handle(SIGSEGV, [](int) { _exit(kEarlierExit); });
}

void PrepareToSurvive() {
  Handle(SIGSEGV, [](int) { siglongjmp(safety, 1); });
}

void SurviveAccessViolation() {
  if (sigsetjmp(safety, 1) == 0) StoreAtAddressEight();
}

void PassHarmlessExceptions() {
  Handle(SIGTRAP, [](int) {});
  try {
    throw std::runtime_error("caught");
  } catch (const std::exception&) {
  }
  asm volatile("int3");
  raise(SIGTRAP);
}

}  // namespace Veldrift
