// Built-in tests, which a test client runs by name in the live process.
#pragma once

#include <cstddef>
#include <span>
#include <string>

namespace Veldrift {

// Obeys a marker of a test client: a length byte and a text. Most texts only mark a place in the
// log; "SELFTEST <id>" runs that test, and its result stands there.
void ObeyTestMarker(std::span<const std::byte> payload);

// "P3" races writers, readers and resetters of what an instance announces and caches, on a copy of
// that state, for 150 ms; false if a cached frame was ever torn. `result` describes it.
bool RunStateRace(std::string& result);

}  // namespace Veldrift
