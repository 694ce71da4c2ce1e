#include "encoder/mf/mf_event_pump.h"

namespace Veldrift {
namespace {

// The generator is the transform: it is held while the event is read and not beyond, so that no
// thread of the platform's has the last reference when its owner is through with it.
class MfEvent final : public TransformEvent {
 public:
  MfEvent(MfEventPump& pump, IMFAsyncResult* result) : pump_(pump), result_(result) {}

  int32_t Read(uint32_t& type) override {
    const ComPtr<IMFMediaEventGenerator> generator = pump_.Generator();
    if (!generator) return E_ABORT;
    ComPtr<IMFMediaEvent> event;
    HRESULT result = generator->EndGetEvent(result_, &event);
    MediaEventType known = MEUnknown;
    if (SUCCEEDED(result)) result = event->GetType(&known);
    type = known;
    return result;
  }

 private:
  MfEventPump& pump_;
  IMFAsyncResult* const result_;
};

}  // namespace

ComPtr<IMFMediaEventGenerator> MfEventPump::Generator() {
  MutexLock lock(mutex_);
  return generator_;
}

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
  std::shared_ptr<TransformEventListener> listener;
  {
    MutexLock lock(mutex_);
    listener = listener_;
  }
  if (listener) {
    MfEvent event(*this, result);
    listener->OnEvent(event);
  }
  return S_OK;
}

}  // namespace Veldrift
