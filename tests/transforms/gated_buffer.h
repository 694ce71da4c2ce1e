// A buffer at whose reading an encoder waits for the test, in the middle of its work.
#pragma once

#include <mfapi.h>
#include <mfidl.h>

#include <atomic>

#include "tests/support/gate.h"
#include "tests/transforms/common/com_ptr.h"

namespace Veldrift::Transforms {

// The platform's interfaces have no virtual destructor; nobody destroys this through one.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"

// Threads: any. Made with a reference that its maker owns.
class GatedBuffer final : public IMFMediaBuffer {
 public:
  GatedBuffer(IMFMediaBuffer& buffer, Gate& gate) : buffer_(&buffer), gate_(gate) {}
  virtual ~GatedBuffer() = default;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    const bool known = iid == __uuidof(IUnknown) || iid == __uuidof(IMFMediaBuffer);
    *object = known ? this : nullptr;
    if (known) AddRef();
    return known ? S_OK : E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++references_; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --references_;
    if (left == 0) delete this;
    return left;
  }

  HRESULT STDMETHODCALLTYPE Lock(BYTE** bytes, DWORD* room, DWORD* length) override {
    gate_.Pass();
    return buffer_->Lock(bytes, room, length);
  }
  HRESULT STDMETHODCALLTYPE Unlock() override { return buffer_->Unlock(); }
  HRESULT STDMETHODCALLTYPE GetCurrentLength(DWORD* length) override {
    return buffer_->GetCurrentLength(length);
  }
  HRESULT STDMETHODCALLTYPE SetCurrentLength(DWORD length) override {
    return buffer_->SetCurrentLength(length);
  }
  HRESULT STDMETHODCALLTYPE GetMaxLength(DWORD* length) override {
    return buffer_->GetMaxLength(length);
  }

 private:
  const ComPtr<IMFMediaBuffer> buffer_;
  Gate& gate_;
  std::atomic<ULONG> references_{1};
};

#pragma GCC diagnostic pop

}  // namespace Veldrift::Transforms
