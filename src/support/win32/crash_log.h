// The way into the log's file for a line about a fault, prepared at installation: neither the heap
// nor a lock of ours is touched on it.
#pragma once

#include <string_view>

namespace Veldrift {

// Keeps the log's present path. Called once, at installation.
void PrepareFaultLog();

// Appends to the file, which others may have open, rename and delete. Failures lose the bytes.
void AppendToFaultLog(std::string_view bytes);

}  // namespace Veldrift
