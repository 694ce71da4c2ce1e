#include "tools/view/window_keys.h"

#include <array>

#include "net/control_protocol.h"

namespace Veldrift {
namespace {

constexpr KeyRow Host(const char* keys, const char* what, SDL_Keycode code, uint8_t index,
                      bool shift = false, bool repeats = false) {
  return {keys, what, code, shift, WindowAct::Command, uint8_t(kHostCommandFirst + index), repeats};
}
constexpr KeyRow Own(const char* keys, const char* what, SDL_Keycode code, WindowAct act) {
  return {keys, what, code, false, act, 0, false};
}

constexpr bool kShift = true;
constexpr bool kRepeats = true;

constexpr std::array kKeys = std::to_array<KeyRow>({
    Host("Space", "play and pause", SDLK_SPACE, 0),
    Host("Right", "a frame forward", SDLK_RIGHT, 1, false, kRepeats),
    Host("Left", "a frame back", SDLK_LEFT, 2, false, kRepeats),
    Host("Shift+Right", "a jump forward", SDLK_RIGHT, 3, kShift, kRepeats),
    Host("Shift+Left", "a jump back", SDLK_LEFT, 4, kShift, kRepeats),
    Host("J", "shuttle back", SDLK_j, 7),
    Host("K", "shuttle stop", SDLK_k, 8),
    Host("L", "shuttle forward", SDLK_l, 9),
    Host("I", "go to in", SDLK_i, 5),
    Host("O", "go to out", SDLK_o, 6),
    Own("F", "full screen", SDLK_f, WindowAct::FullScreen),
    Own("Tab", "figures", SDLK_TAB, WindowAct::Figures),
    Own("? or F1", "these keys", SDLK_F1, WindowAct::Help),
    Own("Esc", "end", SDLK_ESCAPE, WindowAct::End),
    Own("Q", "end", SDLK_q, WindowAct::End),
});

}  // namespace

std::span<const KeyRow> WindowKeys() { return kKeys; }

const KeyRow* FindKey(SDL_Keysym key, bool repeat) {
  if ((key.mod & (KMOD_CTRL | KMOD_ALT | KMOD_GUI)) != 0) return nullptr;
  const bool shift = (key.mod & KMOD_SHIFT) != 0;
  for (const KeyRow& row : kKeys) {
    const bool arrow = row.code == SDLK_RIGHT || row.code == SDLK_LEFT;
    if (row.code == key.sym && (!arrow || row.shift == shift)) {
      return repeat && !row.repeats ? nullptr : &row;
    }
  }
  return nullptr;
}

}  // namespace Veldrift
