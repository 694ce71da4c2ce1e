// Painting that shows at once as a whole, so that nothing flickers.
//
// Threads: the window's own.
#pragma once

#include "ui/win32/gdi_handles.h"

namespace Veldrift {

// A bitmap to draw into, which the destructor copies to the target's origin. Where it can't be had,
// the target itself is drawn into.
class BackBuffer {
 public:
  BackBuffer(HDC target, SIZE size);
  ~BackBuffer();
  BackBuffer(const BackBuffer&) = delete;
  BackBuffer& operator=(const BackBuffer&) = delete;

  HDC Context() const { return memory_ ? memory_.get() : target_; }

 private:
  const HDC target_;
  const SIZE size_;
  UniqueBitmap bitmap_;
  UniqueMemoryContext memory_;
  HGDIOBJ before_ = nullptr;  // what the context had in the bitmap's place
};

// A window's turn to paint itself, for a scope.
class PaintTurn {
 public:
  explicit PaintTurn(HWND window);
  ~PaintTurn() { EndPaint(window_, &paint_); }
  PaintTurn(const PaintTurn&) = delete;
  PaintTurn& operator=(const PaintTurn&) = delete;

  HDC Context() const { return paint_.hdc; }
  // The client area; its origin is 0, 0.
  const RECT& Area() const { return area_; }

 private:
  const HWND window_;
  PAINTSTRUCT paint_{};
  RECT area_{};
};

// Both at once.
class PaintBuffer {
 public:
  explicit PaintBuffer(HWND window)
      : turn_(window), buffer_(turn_.Context(), {turn_.Area().right, turn_.Area().bottom}) {}

  HDC Context() const { return buffer_.Context(); }
  const RECT& Area() const { return turn_.Area(); }

 private:
  const PaintTurn turn_;
  const BackBuffer buffer_;
};

// A font in a context, for a scope.
class SelectedFont {
 public:
  SelectedFont(HDC context, HFONT font) : context_(context), before_(SelectObject(context, font)) {}
  ~SelectedFont() { SelectObject(context_, before_); }
  SelectedFont(const SelectedFont&) = delete;
  SelectedFont& operator=(const SelectedFont&) = delete;

 private:
  const HDC context_;
  const HGDIOBJ before_;
};

}  // namespace Veldrift
