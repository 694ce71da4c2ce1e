// The pictures of a video file, of its own size and rate, as a host's timeline shows them.
#pragma once

#include <memory>
#include <string>

#include "frame_source.h"

namespace Veldrift {

// Null with a reason in `error` if there is no video in the file that can be decoded.
std::unique_ptr<FrameSource> OpenFilePictures(const std::string& file, bool stamp,
                                              std::string& error);

}  // namespace Veldrift
