// What is left when the process goes down: a line in the plug-in log that tells whose fault it was,
// and a dump. Neither takes over the host's own handling: both hand on to what was there before.
//
// The line, in category "crash" at level fault, on the faulting thread and before any handler of
// the host has had its say:
//   [VEH] fatal exception code=0x%08lX addr=%p module=%s+0x%zx tid=%lu
// It is written also for faults that the host catches and survives: it doesn't prove a crash.
//
// The dump is `<local>/Veldrift/crashes/<YYYY-MM-DD_HH-MM-SS>_<process>`, in local time; the folder
// is chosen at installation and made in the crash.
//
// Windows (win32/): access violations, illegal instructions, integer divisions by zero and heap
// corruption are logged; a stack overflow goes to the debugger's channel only. The dump is a
// minidump (".dmp"), written when no handler wanted the exception; after a stack overflow by a
// thread that is made at installation and waits until the process ends. `<local>` is the known
// folder; where there is none, the dump lies in the current folder.
//
// Elsewhere (posix/): SIGSEGV, SIGBUS, SIGILL, SIGFPE and SIGABRT (which is how the C library ends
// a process whose heap it finds corrupted), with the signal's number as the code. One handler
// stands for both: it can't know whether an earlier one survives the fault, so a fault that the
// host catches leaves a dump too. The dump is a text (".txt"). A stack overflow is noted on the
// thread that installed the handler; on a thread without an alternate signal stack the system ends
// the process before any handler runs.
//
// docs/crashes.md tells the same to those who read them.
#pragma once

namespace Veldrift {

// Installs both, once per process; a later call changes nothing and logs nothing. They are never
// removed, so the module stays loaded from here on until the process ends.
//
// Threads: any thread.
void InstallCrashHandler() noexcept;

}  // namespace Veldrift
