#include "ui/win32/setup_resources.h"

namespace Veldrift {

UniqueFont MakeFont(const FontTraits& traits) {
  return UniqueFont(CreateFontW(traits.height, 0, 0, 0, traits.weight, FALSE, FALSE, FALSE,
                                DEFAULT_CHARSET, OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS,
                                CLEARTYPE_QUALITY, DEFAULT_PITCH | FF_DONTCARE,
                                WideText(traits.face).c_str()));
}

SetupResources::SetupResources()
    : background_(CreateSolidBrush(ColourOf(kWindowBackground))),
      card_(CreateSolidBrush(ColourOf(kCardColour))),
      edit_(CreateSolidBrush(ColourOf(kEditBackground))) {
  for (size_t role = 0; role < fonts_.size(); ++role) fonts_[role] = MakeFont(kFonts[role]);
}

}  // namespace Veldrift
