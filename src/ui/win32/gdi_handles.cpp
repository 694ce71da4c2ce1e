#include "ui/win32/gdi_handles.h"

namespace Veldrift {

UniqueFont MakeFont(const FontTraits& traits, DWORD pitch) {
  return UniqueFont(CreateFontW(traits.height, 0, 0, 0, traits.weight, FALSE, FALSE, FALSE,
                                DEFAULT_CHARSET, OUT_DEFAULT_PRECIS, CLIP_DEFAULT_PRECIS,
                                CLEARTYPE_QUALITY, pitch | FF_DONTCARE,
                                WideText(traits.face).c_str()));
}

}  // namespace Veldrift
