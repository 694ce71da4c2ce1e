// What draws itself in the setup window: the cards behind everything, buttons, switches and the
// dot.
//
// Threads: the window's own.
#pragma once

#include <span>

#include "ui/setup_layout.h"
#include "ui/win32/setup_resources.h"

namespace Veldrift {

// Answers WM_PAINT of the window itself.
void PaintCards(HWND window, std::span<const Card> cards, const SetupResources& resources);

// Answers WM_DRAWITEM, for a whole button.
void DrawButton(const DRAWITEMSTRUCT& item, const SetupResources& resources);

// Make of an automatic check box a switch with that icon, and of a static text a dot: live where
// its user data isn't 0. `resources` must outlive them. False: they keep their own looks.
bool DrawAsSwitch(HWND checkBox, char16_t icon, const SetupResources& resources);
bool DrawAsDot(HWND label, const SetupResources& resources);

}  // namespace Veldrift
