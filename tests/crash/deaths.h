// Ways to die, for children of the tests, and what each leaves behind on this system. Bodies in
// posix/ and win32/.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace Veldrift {

struct Death {
  const char* name;
  void (*die)();
  uint32_t code;      // in the log's line; 0: no line
  bool inProgram;     // the line names the test program; else another module or none
  const char* place;  // what the line must say of the place, where it isn't in the program
  uint32_t killedBy;  // as ChildProcess::KilledBy tells
};
std::span<const Death> Deaths();

// The dumps' ending, and what is wrong with the contents of one; empty if nothing is.
extern const char* const kDumpEnding;
std::string FaultOfDump(const std::string& bytes, const Death& death);

// ---- In the child -------------------------------------------------------------------------------

// No core dumps and no dialogs.
void PrepareToDie();

// Installs, as a host would, a handler of last resort that ends the process with kEarlierExit.
// Called before InstallCrashHandler.
constexpr int kEarlierExit = 77;
void InstallEarlierHandler();

// Dies by an access violation that a handler of the test's catches; returns. In two parts around
// InstallCrashHandler.
void PrepareToSurvive();
void SurviveAccessViolation();
// Whether a fault that is caught leaves a dump here.
extern const bool kDumpsCaughtFaults;

// A C++ exception that is caught, a breakpoint and a software exception that are handled.
void PassHarmlessExceptions();

}  // namespace Veldrift
