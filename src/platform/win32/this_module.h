// The library that holds this code, as the system names it: what window classes, resources and
// hooks of ours are registered under. The executable's handle would leave a class behind whose
// procedure is ours.
#pragma once

#include "platform/win32/windows_headers.h"

namespace Veldrift {

// Valid until the library is unloaded; never null.
HINSTANCE ThisModule();

}  // namespace Veldrift
