// Round shapes with smooth edges, by GDI+'s flat calls. What fails is left out.
//
// Threads: the window's own.
#pragma once

#include <optional>

#include "platform/win32/windows_headers.h"
#include "ui/setup_layout.h"

namespace Veldrift {

// GDI+ for as long as it lives; without it a Canvas draws nothing.
class GdiPlusSession {
 public:
  GdiPlusSession();
  ~GdiPlusSession();
  GdiPlusSession(const GdiPlusSession&) = delete;
  GdiPlusSession& operator=(const GdiPlusSession&) = delete;

 private:
  ULONG_PTR token_ = 0;
};

class Canvas {
 public:
  explicit Canvas(HDC context);
  ~Canvas();
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  // A radius of 0 or less gives square corners.
  void FillRounded(const Place& place, int radius, Rgb fill);
  // The same half a pixel further in, where a border of one pixel falls onto whole ones.
  void FillRoundedInset(const Place& place, int radius, Rgb fill, std::optional<Rgb> border);
  void FillCircle(const Place& box, Rgb fill);

 private:
  void* graphics_ = nullptr;
};

RECT RectOf(const Place& place);
COLORREF ColourOf(Rgb colour);

}  // namespace Veldrift
