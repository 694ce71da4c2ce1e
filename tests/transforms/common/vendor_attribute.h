// MFT_ENUM_HARDWARE_VENDOR_ID_Attribute, under a name of ours: mingw's headers lack it, Wine's
// don't.
#pragma once

#include <windows.h>

namespace Veldrift::Transforms {

inline constexpr GUID kVendorAttribute = {
    0x3aecb0cc, 0x035b, 0x4bcc, {0x81, 0x85, 0x2b, 0x8d, 0x55, 0x1e, 0xf3, 0xaf}};

}  // namespace Veldrift::Transforms
