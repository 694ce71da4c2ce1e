#include "encoder/mf/mf_event_pump.h"

namespace Veldrift {
namespace {

class MfEvent final : public TransformEvent {
 public:
  MfEvent(IMFMediaEventGenerator& generator, IMFAsyncResult* result)
      : generator_(generator), result_(result) {}

  int32_t Read(uint32_t& type) override {
    ComPtr<IMFMediaEvent> event;
    HRESULT result = generator_.EndGetEvent(result_, &event);
    MediaEventType known = MEUnknown;
    if (SUCCEEDED(result)) result = event->GetType(&known);
    type = known;
    return result;
  }

 private:
  IMFMediaEventGenerator& generator_;
  IMFAsyncResult* const result_;
};

}  // namespace

HRESULT MfEventPump::Request(const std::shared_ptr<TransformEventListener>& listener) {
  ComPtr<IMFMediaEventGenerator> generator;
  {
    MutexLock lock(mutex_);
    generator = generator_;
    listener_ = listener;
  }
  return generator ? generator->BeginGetEvent(this, nullptr) : E_ABORT;
}

void MfEventPump::Close() {
  MutexLock lock(mutex_);
  generator_.Reset();
  listener_.reset();
}

STDMETHODIMP MfEventPump::QueryInterface(REFIID id, void** out) {
  if (out == nullptr) return E_POINTER;
  *out = nullptr;
  if (id != __uuidof(IUnknown) && id != __uuidof(IMFAsyncCallback)) return E_NOINTERFACE;
  *out = static_cast<IMFAsyncCallback*>(this);
  AddRef();
  return S_OK;
}

STDMETHODIMP_(ULONG) MfEventPump::Release() {
  const ULONG left = --references_;
  if (left == 0) delete this;
  return left;
}

// No wish as to the thread.
STDMETHODIMP MfEventPump::GetParameters(DWORD* flags, DWORD* queue) {
  if (flags != nullptr) *flags = 0;
  if (queue != nullptr) *queue = 0;
  return S_OK;
}

STDMETHODIMP MfEventPump::Invoke(IMFAsyncResult* result) {
  ComPtr<IMFMediaEventGenerator> generator;
  std::shared_ptr<TransformEventListener> listener;
  {
    MutexLock lock(mutex_);
    generator = generator_;
    listener = listener_;
  }
  if (generator && listener) {
    MfEvent event(*generator.Get(), result);
    listener->OnEvent(event);
  }
  return S_OK;
}

}  // namespace Veldrift
