// The events of an asynchronous transform.
#pragma once

#include <atomic>
#include <memory>

#include "encoder/encoder_transform.h"
#include "encoder/mf/com_scope.h"
#include "platform/mutex.h"

namespace Veldrift {

// What the platform calls when an event has come. Counted, since the platform holds it for as long
// as it likes; whoever makes it has the first reference.
//
// Threads: any.
class MfEventPump final : public ComImplementation<IMFAsyncCallback> {
 public:
  explicit MfEventPump(ComPtr<IMFMediaEventGenerator> generator)
      : generator_(std::move(generator)) {}

  // Null behind Close.
  ComPtr<IMFMediaEventGenerator> Generator();
  HRESULT Request(const std::shared_ptr<TransformEventListener>& listener);
  // No event is read or asked for any more. Ends the ring of references with the transform.
  void Close();

  STDMETHODIMP QueryInterface(REFIID id, void** out) override;
  STDMETHODIMP_(ULONG) AddRef() override { return ++references_; }
  STDMETHODIMP_(ULONG) Release() override;
  STDMETHODIMP GetParameters(DWORD* flags, DWORD* queue) override;
  STDMETHODIMP Invoke(IMFAsyncResult* result) override;

 private:
  std::atomic<ULONG> references_{1};
  Mutex mutex_;
  ComPtr<IMFMediaEventGenerator> generator_ VD_GUARDED_BY(mutex_);
  std::shared_ptr<TransformEventListener> listener_ VD_GUARDED_BY(mutex_);
};

}  // namespace Veldrift
