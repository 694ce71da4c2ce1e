#include "ui/win32/paint_buffer.h"

namespace Veldrift {

BackBuffer::BackBuffer(HDC target, SIZE size)
    : target_(target),
      size_(size),
      bitmap_(CreateCompatibleBitmap(target, size.cx, size.cy)),
      memory_(bitmap_ ? CreateCompatibleDC(target) : nullptr) {
  if (memory_) before_ = SelectObject(memory_.get(), bitmap_.get());
}

BackBuffer::~BackBuffer() {
  if (!memory_) return;
  BitBlt(target_, 0, 0, size_.cx, size_.cy, memory_.get(), 0, 0, SRCCOPY);
  // A bitmap that is selected can't be deleted.
  SelectObject(memory_.get(), before_);
}

PaintTurn::PaintTurn(HWND window) : window_(window) {
  BeginPaint(window, &paint_);
  GetClientRect(window, &area_);
}

}  // namespace Veldrift
