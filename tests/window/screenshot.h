// What a window shows, as pixels and as a file for people.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/window/our_windows.h"

namespace Veldrift {

// Rows from the top down; a pixel is 0x00RRGGBB.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<uint32_t> pixels;

  uint32_t At(int x, int y) const { return pixels[size_t(y) * size_t(width) + size_t(x)]; }
  bool operator==(const Picture&) const = default;
};

// A top-level window with its frame and all in it; its client area alone. What waits to be painted
// is painted before. Other windows in front of it aren't seen.
Picture PictureOfWindow(HWND window);
Picture PictureOfClient(HWND window);
// Of any window, also in the middle of its painting.
Picture PictureAsItIs(HWND window);

Picture Part(const Picture& whole, const Place& place);

// The smallest place within `place` that holds all that differs from its first pixel; empty if
// nothing does. What is drawn up to the edge has been cut off, or nearly so.
Place DrawnPlace(const Picture& picture, const Place& place);

// As <name>.png in the folder that VD_SHOTS names; does nothing where it names none.
void KeepShot(const std::string& name, const Picture& picture);
// Likewise as <name>.txt.
void KeepText(const std::string& name, const std::string& text);

}  // namespace Veldrift
