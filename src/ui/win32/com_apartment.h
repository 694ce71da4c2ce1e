// COM for a thread that serves a window.
#pragma once

#include "platform/win32/windows_headers.h"
// Needs windows.h before it.
#include <objbase.h>

namespace Veldrift {

// For the thread that makes it, for as long as it lives. Without COM a window works all the same.
class ComApartment {
 public:
  ComApartment() = default;
  ~ComApartment() {
    if (SUCCEEDED(result_)) CoUninitialize();
  }
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;

 private:
  const HRESULT result_ = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
};

}  // namespace Veldrift
