#include "ui/win32/setup_resources.h"

namespace Veldrift {

SetupResources::SetupResources()
    : background_(CreateSolidBrush(ColourOf(kWindowBackground))),
      card_(CreateSolidBrush(ColourOf(kCardColour))),
      edit_(CreateSolidBrush(ColourOf(kEditBackground))) {
  for (size_t role = 0; role < fonts_.size(); ++role)
    fonts_[role] = MakeFont(kFonts[role], DEFAULT_PITCH);
}

}  // namespace Veldrift
