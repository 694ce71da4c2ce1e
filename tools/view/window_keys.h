// What the window's keys do.
//
// Threads: pure.
#pragma once

#include <SDL.h>

#include <cstdint>
#include <optional>
#include <span>

namespace Veldrift {

enum class WindowAct { Command, FullScreen, Figures, Help, End };

struct KeyRow {
  const char* keys;  // as the help names them
  const char* what;
  SDL_Keycode code;
  bool shift;
  WindowAct act;
  uint8_t opcode;  // of the command to the host
  bool repeats;    // while the key is held down
};

// In the order of the help. `?` is typed, and stands on no key that every keyboard has.
std::span<const KeyRow> WindowKeys();

// Null: the key does nothing. With Ctrl, Alt or the system's key none does.
const KeyRow* FindKey(SDL_Keysym key, bool repeat);

}  // namespace Veldrift
