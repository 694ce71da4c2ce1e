// A picture file as a scanner's camera would see it.
#pragma once

#include <filesystem>
#include <optional>

#include "tests/support/gray_picture.h"

namespace Veldrift {

// The first picture of a file in any format that libavformat reads; nothing if it can't.
std::optional<GrayPicture> ReadPicture(const std::filesystem::path& path);

}  // namespace Veldrift
