// What the setup window draws with, for as long as it lives.
//
// Threads: the window's own.
#pragma once

#include <array>

#include "ui/setup_look.h"
#include "ui/win32/canvas.h"
#include "ui/win32/gdi_handles.h"

namespace Veldrift {

class SetupResources {
 public:
  SetupResources();

  HFONT Font(FontRole role) const { return fonts_[size_t(role)].get(); }
  HBRUSH Background() const { return background_.get(); }
  HBRUSH Card() const { return card_.get(); }
  HBRUSH Edit() const { return edit_.get(); }

 private:
  GdiPlusSession gdiPlus_;
  std::array<UniqueFont, kFonts.size()> fonts_;
  UniqueBrush background_, card_, edit_;
};

}  // namespace Veldrift
