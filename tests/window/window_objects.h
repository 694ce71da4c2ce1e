// What this process holds of the window system.
#pragma once

#include <cstddef>
#include <iosfwd>

namespace Veldrift {

struct WindowObjects {
  size_t gdi = 0;   // fonts, brushes, bitmaps, regions, contexts
  size_t user = 0;  // windows and menus

  bool operator==(const WindowObjects&) const = default;
};
std::ostream& operator<<(std::ostream& out, const WindowObjects& objects);

// Takes half a second under Wine, which doesn't count them itself.
WindowObjects CountWindowObjects();
// The first half of it, at once.
size_t CountGdiObjects();

}  // namespace Veldrift
