// A kernel object's handle that closes itself, and leaves the last error alone when it does.
#pragma once

#include <utility>

#include "platform/win32/windows_headers.h"

namespace Veldrift {

class Handle {
 public:
  Handle() = default;
  explicit Handle(HANDLE handle) : handle_(handle == INVALID_HANDLE_VALUE ? nullptr : handle) {}
  Handle(Handle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  ~Handle() {
    const DWORD error = GetLastError();
    if (handle_ != nullptr) CloseHandle(handle_);
    SetLastError(error);
  }

  explicit operator bool() const { return handle_ != nullptr; }
  HANDLE Get() const { return handle_; }

 private:
  HANDLE handle_ = nullptr;
};

}  // namespace Veldrift
