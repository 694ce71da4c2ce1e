// Owners of what GDI and the window system hand out: each is in one of these from the line on which
// it is received.
#pragma once

#include <memory>
#include <type_traits>

#include "platform/win32/windows_headers.h"
#include "ui/setup_look.h"

namespace Veldrift {

struct DeleteGdiObject {
  void operator()(HGDIOBJ object) const { DeleteObject(object); }
};
struct DeleteMemoryContext {
  void operator()(HDC context) const { DeleteDC(context); }
};
// Does nothing where the window has been destroyed already. On the window's own thread.
struct DestroyOwnWindow {
  void operator()(HWND window) const { DestroyWindow(window); }
};

template <typename Handle, typename Deleter>
using UniqueHandle = std::unique_ptr<std::remove_pointer_t<Handle>, Deleter>;

using UniqueFont = UniqueHandle<HFONT, DeleteGdiObject>;
using UniqueBrush = UniqueHandle<HBRUSH, DeleteGdiObject>;
using UniqueBitmap = UniqueHandle<HBITMAP, DeleteGdiObject>;
using UniqueMemoryContext = UniqueHandle<HDC, DeleteMemoryContext>;
using UniqueWindow = UniqueHandle<HWND, DestroyOwnWindow>;

// Smooth, of every character set; `pitch` as CreateFont takes it. Null if the system refuses:
// controls then show the system's font.
UniqueFont MakeFont(const FontTraits& traits, DWORD pitch);

}  // namespace Veldrift
