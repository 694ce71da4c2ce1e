// Libraries of this process: what others have loaded, and our own.
#pragma once

#include <string>

namespace Veldrift {

// The export `symbol` of a library of this file name that somebody else has loaded already; it is
// never loaded from here. Null if the library or the export isn't there.
void* FindLoadedSymbol(const std::string& fileName, const char* symbol);

// Keeps the library that holds this code loaded until the process ends, whoever unloads it: what
// the process calls at any time, such as a crash handler, must never point into memory that is
// gone. Loading the library again finds its statics as they were. In the executable itself it does
// nothing. False: the system refused.
bool PinThisModule();

}  // namespace Veldrift
