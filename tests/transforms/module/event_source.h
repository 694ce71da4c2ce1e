// The events of an asynchronous transform.
#pragma once

#include <mfidl.h>
#include <windows.h>

#include "tests/transforms/common/com_ptr.h"
#include "tests/transforms/module/call_gate.h"

namespace Veldrift::Transforms {

// Part of its transform, whose references it counts.
// Threads: any.
class EventSource final : public IMFMediaEventGenerator {
 public:
  EventSource(IUnknown& transform, CallGate& gate);
  virtual ~EventSource();

  // `name` is for the trace.
  void Post(MediaEventType type, const char* name, HRESULT status = S_OK);
  // Ends the waits for events; later calls answer MF_E_SHUTDOWN.
  void Shutdown();

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    return transform_.QueryInterface(iid, object);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return transform_.AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return transform_.Release(); }

  HRESULT STDMETHODCALLTYPE GetEvent(DWORD flags, IMFMediaEvent** event) override;
  HRESULT STDMETHODCALLTYPE BeginGetEvent(IMFAsyncCallback* callback, IUnknown* state) override;
  HRESULT STDMETHODCALLTYPE EndGetEvent(IMFAsyncResult* result, IMFMediaEvent** event) override;
  HRESULT STDMETHODCALLTYPE QueueEvent(MediaEventType type, REFGUID extended, HRESULT status,
                                       const PROPVARIANT* value) override;

 private:
  IUnknown& transform_;
  CallGate& gate_;
  const ComPtr<IMFMediaEventQueue> queue_;
};

}  // namespace Veldrift::Transforms
