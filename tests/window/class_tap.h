// Sees the messages of a window class before its windows do: so a test can hold a window's thread
// at a chosen moment, refuse a window, and know that a key has been dealt with.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>

#include "platform/mutex.h"
#include "platform/win32/windows_headers.h"

namespace Veldrift {

// For windows that are made while it lives, and no longer than it. One at a time; the class has
// been registered by this module. Threads: made and destroyed by the test's; `onMessage` runs on
// the windows' threads.
class ClassTap {
 public:
  // Called for each message. What it answers is the answer; without one the window gets it.
  using OnMessage = std::function<std::optional<LRESULT>(HWND, UINT, WPARAM, LPARAM)>;

  ClassTap(const std::wstring& kind, OnMessage onMessage);
  ~ClassTap();
  ClassTap(const ClassTap&) = delete;
  ClassTap& operator=(const ClassTap&) = delete;

  // How many of these messages the windows have dealt with.
  int Done(UINT message);

 private:
  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wide, LPARAM deep);

  static inline ClassTap* current_ = nullptr;
  const OnMessage onMessage_;
  HWND holder_ = nullptr;  // of the class, through which it can be changed
  WNDPROC original_ = nullptr;
  Mutex mutex_;
  std::map<UINT, int> done_ VD_GUARDED_BY(mutex_);
};

}  // namespace Veldrift
