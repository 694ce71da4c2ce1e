#include "tests/transforms/module/event_source.h"

#include "tests/transforms/module/platform.h"

namespace Veldrift::Transforms {

EventSource::EventSource(IUnknown& transform, CallGate& gate)
    : transform_(transform), gate_(gate), queue_(MakeEventQueue()) {}

EventSource::~EventSource() { Shutdown(); }

void EventSource::Post(MediaEventType type, const char* name, HRESULT status) {
  // Before the event: what it causes is traced behind it.
  gate_.Note("Event", name, status);
  queue_->QueueEventParamVar(type, GUID{}, status, nullptr);
}

void EventSource::Shutdown() { queue_->Shutdown(); }

HRESULT EventSource::GetEvent(DWORD flags, IMFMediaEvent** event) {
  const HRESULT failure = gate_.CountOrdered("GetEvent");
  return FAILED(failure) ? failure : queue_->GetEvent(flags, event);
}

// A device that is gone still tells of it: only an ordered failure stops these calls.
HRESULT EventSource::BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) {
  const HRESULT failure = gate_.CountOrdered("BeginGetEvent");
  return FAILED(failure) ? failure : queue_->BeginGetEvent(callback, state);
}

// The event is taken also where the call is to fail: it is lost, as with a failing driver.
HRESULT EventSource::EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) {
  ComPtr<IMFMediaEvent> taken;
  const HRESULT ended = queue_->EndGetEvent(result, taken.Put());
  if (FAILED(ended)) return ended;
  if (const HRESULT failure = gate_.CountOrdered("EndGetEvent"); FAILED(failure)) return failure;
  *event = taken.Detach();
  return S_OK;
}

HRESULT EventSource::QueueEvent(MediaEventType type, REFGUID extended, HRESULT status,
                                const PROPVARIANT* value) {
  return queue_->QueueEventParamVar(type, extended, status, value);
}

}  // namespace Veldrift::Transforms
