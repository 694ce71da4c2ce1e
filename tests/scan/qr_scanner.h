// A QR code's reader that isn't ours: zbar.
#pragma once

#include <optional>
#include <string>

#include "tests/support/gray_picture.h"

namespace Veldrift {

// The bytes in the one QR code of the picture, as they are: nothing is taken for a text of any
// encoding. Nothing if there is no code or more than one.
std::optional<std::string> ScanQr(const GrayPicture& picture);

}  // namespace Veldrift
