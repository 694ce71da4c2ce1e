// What is the POSIX handler's own: whom it hands on to, and how far it can be trusted in a process
// that is broken already.
#include <signal.h>
#include <unistd.h>

#include <regex>
#include <vector>

#include "support/crash_handler.h"
#include "support/paths.h"
#include "tests/crash/crash_fixture.h"
#include "tests/crash/deaths.h"
#include "tests/crash/instructions.h"

namespace Veldrift {
namespace {

using PosixCrashHandler = CrashFixture;

void InstallEarlier(int signal, void (*handler)(int), int flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigaction(signal, &action, nullptr);
}

void InstallInChild() {
  PrepareToDie();
  UseFoldersUnder(ChildFolder());
  InstallCrashHandler();
}

// ---- Whom it hands on to ------------------------------------------------------------------------

// Called a second time, this one would end the process by itself.
void ReturnOnce(int) {
  static int calls = 0;
  if (++calls > 1) _exit(kEarlierExit);
}

TEST_F(PosixCrashHandler, DISABLED_DiesUnderAHandlerForOnce) {
  InstallEarlier(SIGSEGV, ReturnOnce, static_cast<int>(SA_RESETHAND));
  InstallInChild();
  StoreAtAddressEight();
}

TEST_F(PosixCrashHandler, AHandlerThatAskedToBeCalledOnceIsCalledOnce) {
  const ScratchFolder folder;
  const End end = Run(folder, "PosixCrashHandler.DISABLED_DiesUnderAHandlerForOnce");
  EXPECT_EQ(end.killedBy, uint32_t{SIGSEGV}) << "exit code " << end.exitCode;
  EXPECT_EQ(FaultLines(folder), 2u) << "the fault, and its return";
}

TEST_F(PosixCrashHandler, DISABLED_IgnoresAndDies) {
  for (const int signal : {SIGFPE, SIGSEGV}) InstallEarlier(signal, SIG_IGN, 0);
  InstallInChild();
  raise(SIGFPE);
  raise(SIGFPE);
  StoreAtAddressEight();
}

TEST_F(PosixCrashHandler, WhatWasIgnoredIsIgnoredUnlessTheProcessorFaults) {
  const ScratchFolder folder;
  EXPECT_EQ(Run(folder, "PosixCrashHandler.DISABLED_IgnoresAndDies").killedBy, uint32_t{SIGSEGV});
  EXPECT_EQ(Count(LogOf(folder), "code=0x00000008"), 2u) << LogOf(folder);
  EXPECT_EQ(Count(LogOf(folder), "code=0x0000000B"), 1u) << LogOf(folder);
}

TEST_F(PosixCrashHandler, DISABLED_DiesOfASentSignal) {
  InstallInChild();
  raise(SIGSEGV);
}

TEST_F(PosixCrashHandler, ASignalThatAProgramSentEndsTheProcessToo) {
  const ScratchFolder folder;
  EXPECT_EQ(Run(folder, "PosixCrashHandler.DISABLED_DiesOfASentSignal").killedBy,
            uint32_t{SIGSEGV});
  EXPECT_NE(OnlyDump(folder).find("signal 11 SIGSEGV, sent by a program\n"), std::string::npos)
      << OnlyDump(folder);
}

// An earlier handler finds the siginfo and the context that the system made.
void ExitIfToldTheAddress(int, siginfo_t* info, void* context) {
  _exit(info->si_addr == reinterpret_cast<void*>(8) && context != nullptr ? kEarlierExit : 1);
}

TEST_F(PosixCrashHandler, DISABLED_DiesUnderAnInformedHandler) {
  struct sigaction action {};
  action.sa_sigaction = ExitIfToldTheAddress;
  action.sa_flags = SA_SIGINFO;
  sigaction(SIGSEGV, &action, nullptr);
  InstallInChild();
  StoreAtAddressEight();
}

TEST_F(PosixCrashHandler, AnInformedHandlerIsToldWhatTheSystemTold) {
  const ScratchFolder folder;
  EXPECT_EQ(Run(folder, "PosixCrashHandler.DISABLED_DiesUnderAnInformedHandler").exitCode,
            kEarlierExit);
}

// ---- A crash in the report ----------------------------------------------------------------------

// The unwinder follows these two registers, and crashes.
TEST_F(PosixCrashHandler, DISABLED_DiesWithoutAStack) {
  InstallInChild();
  asm volatile("mov $16, %%rsp\n\tmov $16, %%rbp\n\tmovl $1, (%0)" ::"a"(8L) : "memory");
}

TEST_F(PosixCrashHandler, ACrashInTheReportKeepsWhatIsWrittenAndEndsTheProcess) {
  const ScratchFolder folder;
  EXPECT_EQ(Run(folder, "PosixCrashHandler.DISABLED_DiesWithoutAStack").killedBy,
            uint32_t{SIGSEGV});
  EXPECT_EQ(FaultLines(folder), 1u) << LogOf(folder);
  const std::string dump = OnlyDump(folder);
  EXPECT_NE(dump.find("\nrsp 0x0000000000000010\n"), std::string::npos) << dump;
  EXPECT_TRUE(dump.ends_with("\nback-trace\n")) << dump;
}

// ---- The time -----------------------------------------------------------------------------------

TEST_F(PosixCrashHandler, DISABLED_DiesFarFromGreenwich) {
  InstallInChild();
  StoreAtAddressEight();
}

TEST_F(PosixCrashHandler, ItsLineHasTheLogsLocalTime) {
  const ScratchFolder folder;
  const ScopedEnvironment zone("TZ", "VDT-05:30");
  Run(folder, "PosixCrashHandler.DISABLED_DiesFarFromGreenwich");
  const std::string log = LogOf(folder);
  std::vector<int> minutes;
  const std::regex stamp("\\[\\d{4}-\\d\\d-\\d\\d (\\d\\d):(\\d\\d):\\d\\d\\.\\d{3} com");
  for (std::sregex_iterator at(log.begin(), log.end(), stamp), end; at != end; ++at) {
    minutes.push_back(std::stoi((*at)[1]) * 60 + std::stoi((*at)[2]));
  }
  ASSERT_EQ(minutes.size(), 3u) << log;
  EXPECT_LE((minutes[2] - minutes[0] + 1440) % 1440, 1) << log;
}

}  // namespace
}  // namespace Veldrift
