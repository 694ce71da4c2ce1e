// Everything from OnSignal down runs in a signal handler, anywhere in anybody's code: no
// allocation, no lock, no stdio. Texts are put together in FixedText and written with write(); a
// module is found by _dl_find_object, which the C library made for this place. The unwinder behind
// backtrace() is the one part that may itself run into trouble, so it comes last in the dump.
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <link.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <string>

#include "platform/calendar.h"
#include "platform/file.h"
#include "platform/system.h"
#include "support/crash_handler_system.h"
#include "support/fault_line.h"
#include "support/fixed_text.h"
#include "support/paths.h"
#include "support/report_turn.h"

namespace Veldrift {
namespace {

struct SignalName {
  int signal;
  const char* name;
};
constexpr SignalName kSignals[] = {
    {SIGSEGV, "SIGSEGV"}, {SIGBUS, "SIGBUS"},   {SIGILL, "SIGILL"},
    {SIGFPE, "SIGFPE"},   {SIGABRT, "SIGABRT"},
};

struct RegisterName {
  int index;
  const char* name;
};
constexpr RegisterName kRegisters[] = {
    {REG_RIP, "rip"}, {REG_RSP, "rsp"}, {REG_RBP, "rbp"}, {REG_RAX, "rax"}, {REG_RBX, "rbx"},
    {REG_RCX, "rcx"}, {REG_RDX, "rdx"}, {REG_RSI, "rsi"}, {REG_RDI, "rdi"}, {REG_R8, "r8"},
    {REG_R9, "r9"},   {REG_R10, "r10"}, {REG_R11, "r11"}, {REG_R12, "r12"}, {REG_R13, "r13"},
    {REG_R14, "r14"}, {REG_R15, "r15"}, {REG_EFL, "efl"}, {REG_ERR, "err"}, {REG_TRAPNO, "trapno"},
    {REG_CR2, "cr2"},
};

constexpr size_t kAlternateStackBytes = 256 * 1024;
constexpr size_t kPathSize = 2048;
constexpr int kMostFrames = 64;
constexpr mode_t kOwnerOnly = 0600;

// What a crash needs and can't ask for any more, worked out at installation. Plain data: nothing
// of it is destroyed while a crash may still come.
struct Surroundings {
  char log[kPathSize];
  char folder[kPathSize];   // <local>/Veldrift
  char crashes[kPathSize];  // <local>/Veldrift/crashes
  char executable[256];     // its file name
  int64_t utcOffset;        // seconds; a change of summer time after it goes unnoticed
};
Surroundings surroundings{};

// What was installed before, by signal number.
struct sigaction previousActions[NSIG];
// A handler that asked to be called once (SA_RESETHAND) was.
std::atomic<bool> previousSpent[NSIG];

struct Crash {
  int signal;
  const siginfo_t* info;
  const ucontext_t* context;
  CalendarTime time;

  uint64_t Register(int index) const {
    return static_cast<uint64_t>(context->uc_mcontext.gregs[index]);
  }
  uint64_t Instruction() const { return Register(REG_RIP); }
  FixedText InstructionText() const { return FixedText().AddAddress(Instruction()); }
  // By the processor, at an instruction, and not sent by a program.
  bool IsFault() const { return info->si_code > 0; }
};

CalendarTime PreparedLocalTime() {
  return UtcTime(WallClockMillis() + surroundings.utcOffset * 1'000);
}

ReportTurn turn;

bool BeginReport() {
  constexpr int kMostPauses = 2000;
  return turn.Begin(static_cast<uint32_t>(gettid()), kMostPauses, [] {
    constexpr timespec kPause{0, 1'000'000};
    nanosleep(&kPause, nullptr);
  });
}

// ---- Writing ------------------------------------------------------------------------------------

void WriteText(int file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(file, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return;
    text.remove_prefix(static_cast<size_t>(count));
  }
}

bool IsInModule(uint64_t address) {
  dl_find_object found{};
  return _dl_find_object(reinterpret_cast<void*>(address), &found) == 0;
}

// Which module holds an address, and where in it.
struct CodePlace {
  const char* module = "?";
  uint64_t offset = 0;
};

CodePlace FindPlace(uint64_t address) {
  dl_find_object found{};
  if (_dl_find_object(reinterpret_cast<void*>(address), &found) != 0) return {};
  const char* path = found.dlfo_link_map->l_name;
  if (*path == '\0') path = surroundings.executable;
  const char* slash = std::strrchr(path, '/');
  return {slash == nullptr ? path : slash + 1,
          address - reinterpret_cast<uint64_t>(found.dlfo_map_start)};
}

// "module+0x12", or "?+0x0" for an address in no module.
void AddPlace(FixedText& text, uint64_t address) {
  const CodePlace place = FindPlace(address);
  text.Add(place.module).Add("+").AddAddress(place.offset);
}

void WriteLogLine(const Crash& crash) {
  const CodePlace place = FindPlace(crash.Instruction());
  const FixedText line = FormatFaultLine(crash.time, {.code = static_cast<uint64_t>(crash.signal),
                                                      .address = crash.InstructionText(),
                                                      .module = place.module,
                                                      .offset = place.offset,
                                                      .thread = static_cast<uint64_t>(gettid())});
  const int file = open(surroundings.log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kOwnerOnly);
  if (file < 0) return;
  WriteText(file, line.View());
  close(file);
}

const char* NameOf(int signal) {
  for (const auto& known : kSignals) {
    if (known.signal == signal) return known.name;
  }
  return "?";
}

void WriteHead(int file, const Crash& crash) {
  FixedText text;
  text.Add("Veldrift crash dump, ").AddTime(crash.time, '-', ' ', ':').Add("\n");
  text.Add("process ").AddDecimal(static_cast<uint64_t>(getpid())).Add(" ");
  text.Add(surroundings.executable).Add(", thread ");
  text.AddDecimal(static_cast<uint64_t>(gettid())).Add("\nsignal ");
  text.AddDecimal(static_cast<uint64_t>(crash.signal)).Add(" ").Add(NameOf(crash.signal));
  if (crash.IsFault()) {
    text.Add(", code ").AddDecimal(static_cast<uint64_t>(crash.info->si_code));
    text.Add(", fault address ").AddAddress(reinterpret_cast<uint64_t>(crash.info->si_addr));
  } else {
    text.Add(", sent by a program");
  }
  text.Add("\nat ").AddAddress(crash.Instruction()).Add(" ");
  AddPlace(text, crash.Instruction());
  WriteText(file, text.Add("\n").View());
}

void WriteRegisters(int file, const Crash& crash) {
  WriteText(file, "\nregisters\n");
  for (const auto& known : kRegisters) {
    FixedText text;
    text.Add(known.name).Add(" 0x").AddHex(crash.Register(known.index), 16).Add("\n");
    WriteText(file, text.View());
  }
}

void WriteMaps(int file) {
  WriteText(file, "\nmaps\n");
  const int maps = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  if (maps < 0) return;
  char block[1024];
  ssize_t count = 0;
  while ((count = read(maps, block, sizeof block)) > 0) {
    WriteText(file, {block, static_cast<size_t>(count)});
  }
  close(maps);
}

void WriteFrame(int file, int number, uint64_t address) {
  FixedText text;
  text.Add("#").AddDecimal(static_cast<uint64_t>(number)).Add(" ").AddAddress(address);
  AddPlace(text.Add(" "), address);
  WriteText(file, text.Add("\n").View());
}

// From the faulting instruction on, where the unwinder comes that far; else all that it found.
void WriteFrames(int file, const Crash& crash) {
  void* frames[kMostFrames];
  const int count = backtrace(frames, kMostFrames);
  int first = 0;
  for (int i = 0; i < count; ++i) {
    if (reinterpret_cast<uint64_t>(frames[i]) == crash.Instruction()) first = i;
  }
  for (int i = first; i < count; ++i) {
    WriteFrame(file, i - first, reinterpret_cast<uint64_t>(frames[i]));
  }
}

// After a call to where no code is, the unwinder would read that place and crash. The word on top
// of the stack is then the caller.
void WriteCaller(int file, const Crash& crash) {
  WriteFrame(file, 0, crash.Instruction());
  uint64_t word = 0;
  const iovec here{&word, sizeof word};
  const iovec there{reinterpret_cast<void*>(crash.Register(REG_RSP)), sizeof word};
  if (process_vm_readv(getpid(), &here, 1, &there, 1, 0) == sizeof word) {
    WriteFrame(file, 1, word);
  }
}

void WriteBackTrace(int file, const Crash& crash) {
  WriteText(file, "\nback-trace\n");
  if (IsInModule(crash.Instruction())) {
    WriteFrames(file, crash);
  } else {
    WriteCaller(file, crash);
  }
}

void WriteDump(const Crash& crash) {
  mkdir(surroundings.folder, 0777);
  mkdir(surroundings.crashes, 0777);
  FixedText name;
  name.AddTime(crash.time, '-', '_', '-').Add("_");
  name.AddDecimal(static_cast<uint64_t>(getpid())).Add(".txt");
  const int folder = open(surroundings.crashes, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return;
  const int file =
      openat(folder, name.CString(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, kOwnerOnly);
  close(folder);
  if (file < 0) return;
  WriteHead(file, crash);
  WriteRegisters(file, crash);
  WriteMaps(file);
  WriteBackTrace(file, crash);
  WriteText(file, "end\n");
  close(file);
}

// ---- Handing on ---------------------------------------------------------------------------------

// A fault comes again when the handler returns, at the same instruction, and ends the process; what
// a program sent has to be sent again.
void EndByDefault(int signal, const siginfo_t* info) {
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  sigaction(signal, &action, nullptr);
  if (info->si_code <= 0) raise(signal);
}

// The signals that the earlier handler wanted blocked while it runs.
void BlockAsAskedBy(const struct sigaction& action, int signal) {
  sigset_t blocked = action.sa_mask;
  if ((action.sa_flags & SA_NODEFER) == 0) sigaddset(&blocked, signal);
  sigprocmask(SIG_BLOCK, &blocked, nullptr);
}

bool IsSpent(const struct sigaction& action, int signal) {
  return (action.sa_flags & SA_RESETHAND) != 0 && previousSpent[signal].exchange(true);
}

enum class Next { Ignore, EndByDefault, EarlierHandler };

// The system doesn't let a process ignore a fault either.
Next WhatFollows(int signal, const siginfo_t* info) {
  const struct sigaction& action = previousActions[signal];
  const bool sent = info->si_code <= 0;
  if (action.sa_handler == SIG_IGN) return sent ? Next::Ignore : Next::EndByDefault;
  if (action.sa_handler == SIG_DFL || IsSpent(action, signal)) return Next::EndByDefault;
  return Next::EarlierHandler;
}

void CallEarlierHandler(int signal, siginfo_t* info, void* context) {
  const struct sigaction& action = previousActions[signal];
  BlockAsAskedBy(action, signal);
  if ((action.sa_flags & SA_SIGINFO) != 0) {
    action.sa_sigaction(signal, info, context);
  } else {
    action.sa_handler(signal);
  }
}

// Its own signals stay open (SA_NODEFER): a crash in the report comes here again, ends reporting
// for good, and still reaches what was installed before.
void OnSignal(int signal, siginfo_t* info, void* context) {
  const int error = errno;
  const bool reports = BeginReport();
  if (reports) {
    const Crash crash{signal, info, static_cast<const ucontext_t*>(context), PreparedLocalTime()};
    WriteLogLine(crash);
    WriteDump(crash);
  }
  const Next next = WhatFollows(signal, info);
  // While the process ends, no other thread may begin a report, which would replace this one by
  // half of its own.
  if (reports && next != Next::EndByDefault) turn.End(static_cast<uint32_t>(gettid()));
  errno = error;
  if (next == Next::EarlierHandler) CallEarlierHandler(signal, info, context);
  if (next == Next::EndByDefault) EndByDefault(signal, info);
}

// ---- Installation -------------------------------------------------------------------------------

template <size_t size>
void Keep(char (&place)[size], const std::string& text) {
  if (text.size() < size) std::memcpy(place, text.c_str(), text.size() + 1);
}

void ExploreSurroundings() {
  const std::string folder = GetLocalDir().native();
  Keep(surroundings.log, GetPluginLogPath().native());
  Keep(surroundings.folder, folder);
  Keep(surroundings.crashes, folder + "/crashes");
  Keep(surroundings.executable, GetExecutablePath().filename().native());
  const std::time_t now = std::time(nullptr);
  tm parts{};
  localtime_r(&now, &parts);
  surroundings.utcOffset = parts.tm_gmtoff;
  // The first call loads the unwinder.
  void* frame = nullptr;
  backtrace(&frame, 1);
}

// For this thread, if it has none: without one an overflown stack leaves no room for a handler. It
// is never given back, as the handlers aren't.
void MakeAlternateStack() {
  stack_t current{};
  if (sigaltstack(nullptr, &current) != 0 || (current.ss_flags & SS_DISABLE) == 0) return;
  void* memory = mmap(nullptr, kAlternateStackBytes, PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (memory == MAP_FAILED) return;
  stack_t stack{};
  stack.ss_sp = memory;
  stack.ss_size = kAlternateStackBytes;
  sigaltstack(&stack, nullptr);
}

void InstallFor(int signal) {
  struct sigaction action {};
  action.sa_sigaction = OnSignal;
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  sigemptyset(&action.sa_mask);
  // Asked first: the handler may be called as soon as it is set.
  sigaction(signal, nullptr, &previousActions[signal]);
  sigaction(signal, &action, nullptr);
}

}  // namespace

void InstallSystemCrashHandlers() {
  ExploreSurroundings();
  MakeAlternateStack();
  for (const auto& known : kSignals) InstallFor(known.signal);
  PluginLog(kCrashLog, kLogInfo, "on this system dumps are texts in %s", surroundings.crashes);
}

}  // namespace Veldrift
