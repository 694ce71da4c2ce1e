// Names of the platform's results, for the log.
#pragma once

#include <cstdint>
#include <string>

namespace Veldrift {

// "NAME (0xvalue)" for the results that encoders and their drivers are known to give, else the bare
// value. The names are those that our logs have always had: 0xC00D36B5 is called
// MF_E_INVALIDSTREAMNUMBER here, MF_E_NOTACCEPTING in the platform's headers.
std::string HresultName(uint32_t value);

}  // namespace Veldrift
