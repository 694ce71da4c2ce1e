// One reference to a COM object, for code that Wine's headers and mingw's compile alike.
#pragma once

#include <utility>

namespace Veldrift::Transforms {

template <class T>
class ComPtr {
 public:
  ComPtr() = default;
  ComPtr(const ComPtr& other) : ComPtr(other.object_) {}
  ComPtr(ComPtr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  // Takes a reference of its own.
  explicit ComPtr(T* object) : object_(object) {
    if (object_) object_->AddRef();
  }
  ~ComPtr() { Reset(); }
  ComPtr& operator=(ComPtr other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  void Reset() {
    if (T* object = std::exchange(object_, nullptr)) object->Release();
  }
  // Where a call puts an object whose reference becomes ours.
  T** Put() {
    Reset();
    return &object_;
  }
  void** PutVoid() { return reinterpret_cast<void**>(Put()); }
  // Hands the reference to a caller.
  T* Detach() { return std::exchange(object_, nullptr); }

  T* Get() const { return object_; }
  T* operator->() const { return object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  T* object_ = nullptr;
};

}  // namespace Veldrift::Transforms
