// How often this program allocated, counted in its operator new.
#pragma once

#include <cstdint>

namespace Veldrift {
uint64_t AllocationCount();
}
