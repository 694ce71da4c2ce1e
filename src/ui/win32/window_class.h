// The window classes of this module.
#pragma once

#include "platform/win32/windows_headers.h"

namespace Veldrift {

// Registers `kind` as a class of this module (its hInstance is filled in). 0, or the system's error
// number. A class of the name that is there already is what the module left behind when it was
// unloaded from this address before; its procedure may be other code by now, so it is replaced. At
// the unloading itself it couldn't be given back: nothing waits for the window system there.
DWORD RegisterOwnClass(WNDCLASSW kind);

}  // namespace Veldrift
