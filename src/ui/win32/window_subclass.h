// A procedure of ours in front of a control's own.
//
// Threads: the window's own.
#pragma once

#include "platform/win32/windows_headers.h"
// Needs windows.h before it.
#include <commctrl.h>

namespace Veldrift {

// `procedure` gets every message of the window, and `data` with it; it hands on what it doesn't
// answer itself with CallNextProcedure. The system's functions are looked up when they are needed:
// without its newer version the library of controls has them by their ordinals alone, and a module
// that names them would not load. False: there is no way, and the control stays as it is.
bool PutInFront(HWND window, SUBCLASSPROC procedure, DWORD_PTR data);

LRESULT CallNextProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

}  // namespace Veldrift
