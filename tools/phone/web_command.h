// What a page may ask of the host: a line of text that becomes a command of the protocol.
//
//   play, step-forward, ... , request-key-frame     the transport keys by their names
//   codec=h264 | hevc     gop=intra | short | long | auto
//   size=0..65535         the shorter side's limit in pixels; 0 is none
//   quality=0..100        per cent, which is the mode "quality"; bitrate is the other mode
//
// Threads: any; functions only.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/receiver/commands.h"

namespace Veldrift {

// Nothing if it isn't one of these.
std::optional<Command> ParseWebCommand(std::string_view text);

// A setting as the page writes it: "codec=h264". Empty for what is no setting.
std::string WebSettingText(const Command& command);

}  // namespace Veldrift
