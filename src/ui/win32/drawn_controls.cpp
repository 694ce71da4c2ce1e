#include "ui/win32/drawn_controls.h"

#include <array>
#include <string>

#include "ui/win32/paint_buffer.h"
#include "ui/win32/window_subclass.h"

namespace Veldrift {
namespace {

constexpr wchar_t kIconProperty[] = L"Veldrift.Icon";

std::wstring TextOf(HWND window) {
  std::array<wchar_t, 256> text;
  const int length = GetWindowTextW(window, text.data(), int(text.size()));
  return {text.data(), size_t(length)};
}

void DrawLine(HDC context, const std::wstring& text, const Place& place, Rgb colour, UINT how) {
  RECT area = RectOf(place);
  SetBkMode(context, TRANSPARENT);
  SetTextColor(context, ColourOf(colour));
  DrawTextW(context, text.c_str(), int(text.size()), &area,
            how | DT_SINGLELINE | DT_VCENTER | DT_NOPREFIX);
}

const SetupResources& ResourcesOf(DWORD_PTR data) {
  return *reinterpret_cast<const SetupResources*>(data);
}

// ---- The switch --------------------------------------------------------------------------------

void PaintSwitch(HWND window, const SetupResources& resources) {
  const PaintBuffer paint(window);
  const HDC context = paint.Context();
  FillRect(context, &paint.Area(), resources.Card());
  const bool checked = SendMessageW(window, BM_GETCHECK, 0, 0) == BST_CHECKED;
  const auto icon = wchar_t(reinterpret_cast<ULONG_PTR>(GetPropW(window, kIconProperty)));
  const SwitchPlaces places =
      PlacesInSwitch(paint.Area().right, paint.Area().bottom, checked, icon != 0);
  {
    Canvas canvas(context);
    canvas.FillRounded(places.pill, places.pill.height / 2, checked ? kAccentBlue : kSwitchOff);
    canvas.FillCircle(places.knob, kWhite);
  }
  if (icon != 0) {
    const SelectedFont font(context, resources.Font(FontRole::Icon));
    DrawLine(context, {icon}, places.icon, kSecondaryText, DT_LEFT);
  }
  const SelectedFont font(context, resources.Font(FontRole::Body));
  DrawLine(context, TextOf(window), places.text, kPrimaryText, DT_LEFT | DT_END_ELLIPSIS);
  if (GetFocus() == window) {
    const RECT focus = RectOf(places.focus);
    DrawFocusRect(context, &focus);
  }
}

// A check box shows some changes by drawing its own picture at once. While it does, it may not
// draw.
LRESULT CallWithoutDrawing(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
  const bool visible = IsWindowVisible(window) != FALSE;
  if (visible) CallNextProcedure(window, WM_SETREDRAW, FALSE, 0);
  const LRESULT answer = CallNextProcedure(window, message, wParam, lParam);
  if (visible && IsWindow(window)) {
    CallNextProcedure(window, WM_SETREDRAW, TRUE, 0);
    InvalidateRect(window, nullptr, FALSE);
  }
  return answer;
}

LRESULT CALLBACK SwitchProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR,
                                 DWORD_PTR data) {
  switch (message) {
    case WM_PAINT:
      PaintSwitch(window, ResourcesOf(data));
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_SETFOCUS:
    case WM_KILLFOCUS:
    case BM_SETCHECK:
    case BM_SETSTATE:
    case WM_ENABLE:
      return CallWithoutDrawing(window, message, wParam, lParam);
    case WM_NCDESTROY:
      RemovePropW(window, kIconProperty);
      break;
    default:
      break;
  }
  return CallNextProcedure(window, message, wParam, lParam);
}

// ---- The dot -----------------------------------------------------------------------------------

void PaintDot(HWND window, const SetupResources& resources) {
  const PaintBuffer paint(window);
  FillRect(paint.Context(), &paint.Area(), resources.Card());
  const bool live = GetWindowLongPtrW(window, GWLP_USERDATA) != 0;
  Canvas canvas(paint.Context());
  canvas.FillCircle(DotPlace(paint.Area().right, paint.Area().bottom), live ? kLiveDot : kIdleDot);
}

LRESULT CALLBACK DotProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam, UINT_PTR,
                              DWORD_PTR data) {
  if (message == WM_ERASEBKGND) return 1;
  if (message != WM_PAINT) return CallNextProcedure(window, message, wParam, lParam);
  PaintDot(window, ResourcesOf(data));
  return 0;
}

}  // namespace

void PaintCards(HWND window, std::span<const Card> cards, const SetupResources& resources) {
  const PaintBuffer paint(window);
  FillRect(paint.Context(), &paint.Area(), resources.Background());
  Canvas canvas(paint.Context());
  for (const Card& card : cards) {
    if (card.right <= card.left) continue;
    const Place place{card.left, card.top, card.right - card.left, card.bottom - card.top};
    canvas.FillRoundedInset(place, kCardRadius, RgbOf(card.colour),
                            card.bordered != 0 ? std::optional(kCardBorder) : std::nullopt);
  }
}

void DrawButton(const DRAWITEMSTRUCT& item, const SetupResources& resources) {
  const RECT& area = item.rcItem;
  const BackBuffer buffer(item.hDC, {area.right, area.bottom});
  const HDC context = buffer.Context();
  FillRect(context, &area, resources.Card());
  const ButtonLook look =
      LookOfButton(KindOfButton(int(item.CtlID)), (item.itemState & ODS_SELECTED) != 0,
                   (item.itemState & ODS_DISABLED) == 0);
  const Place place{0, 0, area.right, area.bottom};
  {
    Canvas canvas(context);
    canvas.FillRoundedInset(place, kButtonRadius, look.fill, look.border);
  }
  const SelectedFont font(context, resources.Font(FontRole::Body));
  DrawLine(context, TextOf(item.hwndItem), place, look.text, DT_CENTER);
  if ((item.itemState & ODS_FOCUS) != 0) DrawFocusRect(context, &area);
}

bool DrawAsSwitch(HWND checkBox, char16_t icon, const SetupResources& resources) {
  SetPropW(checkBox, kIconProperty, reinterpret_cast<HANDLE>(ULONG_PTR{icon}));
  return PutInFront(checkBox, SwitchProcedure, reinterpret_cast<DWORD_PTR>(&resources));
}

bool DrawAsDot(HWND label, const SetupResources& resources) {
  return PutInFront(label, DotProcedure, reinterpret_cast<DWORD_PTR>(&resources));
}

}  // namespace Veldrift
