// The plug-in's one configuration window. Where the system has no windows it is a text file,
// `status.txt` beside the log, that says the same.
//
// Real: ui/win32/, ui/posix/ (chosen by CMake).
#pragma once

namespace Veldrift {

// Opens it on a thread of its own, or brings the open one to the front, and returns at once.
// Threads: any but the window's own.
void ShowSetupDialog();

// Asks it to close, without waiting for the user. Threads: any. Without a window nothing happens.
void CloseSetupDialog();

}  // namespace Veldrift
