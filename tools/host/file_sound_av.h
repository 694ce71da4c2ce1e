// The sound of a media file, at its own rate, in two channels.
#pragma once

#include <memory>
#include <string>

#include "sound_source.h"

namespace Veldrift {

// Null if there is none in the file that can be decoded.
std::unique_ptr<SoundSource> OpenFileSound(const std::string& file);

}  // namespace Veldrift
