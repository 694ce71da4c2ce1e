// The minidump of a crash, in the folder for dumps.
#pragma once

#include "platform/win32/windows_headers.h"

namespace Veldrift {

// Chooses the folder, and starts the thread that writes where a crashed thread has no stack left:
// it waits until the process ends. Called once, at installation.
void PrepareCrashDumps();

// On the calling thread, which has crashed. Silent where the file can't be made; else the
// debugger's channel tells the path. Not by two threads at once: the library behind it is for one.
void WriteCrashDump(EXCEPTION_POINTERS* exception);

// The same by the thread made at installation, while the calling thread waits in little stack.
void WriteCrashDumpElsewhere(EXCEPTION_POINTERS* exception);

// Whether the calling thread is that one: what happens on it happens inside a report.
bool IsCrashDumpThread();

}  // namespace Veldrift
