// What can be done to the host's timeline: by the script of the command line, and by the phone
// through the sibling module.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "support/control_bridge.h"

namespace Veldrift {

struct HostAction {
  enum class Kind {
    Play,       // at `value` times the speed; again at the same sign: twice as fast
    PlayPause,  // the space bar
    Pause,
    Step,    // by `value` frames, the clock standing
    GoTo,    // to `value` seconds
    Render,  // the picture under the playhead once more
    Size,    // of the pictures, from the next one on
    Rate,    // `value` frames a second: the sequence is opened anew
  };
  Kind kind = Kind::Render;
  double value = 0;
  int width = 0;
  int height = 0;

  bool operator==(const HostAction&) const = default;
};

// In words, as a script has it.
std::string TextOf(const HostAction& action);

HostAction ActionOf(BridgeOperation operation);

struct ScriptedAction {
  double seconds = 0;  // since the round began
  HostAction action;
};

// "2 pause, 3 step, 4 play", in the order of time. Nothing, with what is wrong in `error`.
std::optional<std::vector<ScriptedAction>> ParseScript(const std::string& text, std::string& error);

// "1280x720", from 64x64 to 16384x16384.
bool ParseSize(const std::string& text, int& width, int& height);

}  // namespace Veldrift
