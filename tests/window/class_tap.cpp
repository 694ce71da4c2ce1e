#include "tests/window/class_tap.h"

#include <gtest/gtest.h>

#include <utility>

#include "platform/win32/this_module.h"

namespace Veldrift {

ClassTap::ClassTap(const std::wstring& kind, OnMessage onMessage)
    : onMessage_(std::move(onMessage)),
      holder_(CreateWindowExW(0, kind.c_str(), L"", 0, 0, 0, 0, 0, HWND_MESSAGE, nullptr,
                              ThisModule(), nullptr)) {
  EXPECT_NE(holder_, nullptr) << "no such class: " << NarrowText(kind);
  current_ = this;
  original_ = reinterpret_cast<WNDPROC>(
      SetClassLongPtrW(holder_, GCLP_WNDPROC, reinterpret_cast<LONG_PTR>(&Procedure)));
}

ClassTap::~ClassTap() {
  SetClassLongPtrW(holder_, GCLP_WNDPROC, reinterpret_cast<LONG_PTR>(original_));
  current_ = nullptr;
  DestroyWindow(holder_);
  // Its end may have been taken for that of this thread's loop.
  MSG quit;
  PeekMessageW(&quit, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE);
}

int ClassTap::Done(UINT message) {
  MutexLock lock(mutex_);
  return done_[message];
}

LRESULT CALLBACK ClassTap::Procedure(HWND window, UINT message, WPARAM wide, LPARAM deep) {
  ClassTap& self = *current_;
  const std::optional<LRESULT> answer = self.onMessage_(window, message, wide, deep);
  const LRESULT result =
      answer ? *answer : CallWindowProcW(self.original_, window, message, wide, deep);
  MutexLock lock(self.mutex_);
  ++self.done_[message];
  return result;
}

}  // namespace Veldrift
