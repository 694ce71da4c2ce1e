// Owners for what COM hands out: each is in one of these from the line on which it is received. And
// what our own objects derive from.
#pragma once

#include <memory>
#include <type_traits>

#include "encoder/mf/mf_headers.h"
// Needs windows.h before it.
#include <wrl/client.h>

namespace Veldrift {

// A counted reference. Receives by `&pointer`, which gives an earlier one back first.
template <typename Interface>
using ComPtr = Microsoft::WRL::ComPtr<Interface>;

// Takes over the reference that came with `object`. Attach() would not do: that of mingw-w64's
// header counts one more, which nobody gives back.
template <typename Interface>
void Adopt(ComPtr<Interface>& pointer, Interface* object) {
  *pointer.ReleaseAndGetAddressOf() = object;
}

struct CoTaskMemoryFree {
  void operator()(void* memory) const { CoTaskMemFree(memory); }
};

// Memory that the callee allocated and the caller frees, such as texts and arrays.
template <typename T>
using CoTaskMemory = std::unique_ptr<T, CoTaskMemoryFree>;

// A VARIANT or a PROPVARIANT, empty at first.
template <typename Variant, HRESULT(WINAPI* Clear)(Variant*)>
class ScopedVariantOf {
 public:
  ScopedVariantOf() = default;
  ~ScopedVariantOf() { Clear(&value_); }
  ScopedVariantOf(const ScopedVariantOf&) = delete;
  ScopedVariantOf& operator=(const ScopedVariantOf&) = delete;

  // To be filled by a call; what was inside is given back.
  Variant* Receive() {
    Clear(&value_);
    return &value_;
  }
  const Variant& Get() const { return value_; }

 private:
  static_assert(std::is_trivially_copyable_v<Variant>);
  Variant value_{};  // all zero is empty
};

using ScopedVariant = ScopedVariantOf<VARIANT, VariantClear>;
using ScopedPropVariant = ScopedVariantOf<PROPVARIANT, PropVariantClear>;

// What a class of ours derives from that implements an interface. The interfaces' own destructors
// are public and not virtual, against which the compiler warns every heir.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
template <typename Interface>
class ComImplementation : public Interface {
 public:
  ComImplementation() = default;
  virtual ~ComImplementation() = default;
  ComImplementation(const ComImplementation&) = delete;
  ComImplementation& operator=(const ComImplementation&) = delete;
};
#pragma GCC diagnostic pop

}  // namespace Veldrift
