// Generators of identifiers and secrets. Threads: any thread.
#pragma once

#include <cstddef>
#include <string>

namespace Veldrift {

// Six ASCII digits, "271828" if the system's generator failed.
std::string MakePairingCode();

// `bytes` random bytes as lower-case hexadecimal digits, high nibble first; empty if the generator
// failed.
std::string MakeToken(size_t bytes);

// A new UUID in lower-case text form; the nil UUID if the system gave none.
std::string MakeUuid();

}  // namespace Veldrift
