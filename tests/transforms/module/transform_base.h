// The calls of IMFTransform that an encoder with one input and one output has no use for.
#pragma once

#include <mfidl.h>
#include <mftransform.h>
#include <windows.h>

namespace Veldrift::Transforms {

class TransformBase : public IMFTransform {
 public:
  virtual ~TransformBase() = default;

  HRESULT STDMETHODCALLTYPE GetStreamLimits(DWORD* inputMinimum, DWORD* inputMaximum,
                                            DWORD* outputMinimum, DWORD* outputMaximum) override {
    *inputMinimum = *inputMaximum = *outputMinimum = *outputMaximum = 1;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE GetStreamCount(DWORD* inputs, DWORD* outputs) override {
    *inputs = *outputs = 1;
    return S_OK;
  }
  // As they are numbered from 0, nobody needs to ask.
  HRESULT STDMETHODCALLTYPE GetStreamIDs(DWORD, DWORD*, DWORD, DWORD*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetInputStreamAttributes(DWORD, IMFAttributes**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetOutputStreamAttributes(DWORD, IMFAttributes**) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE DeleteInputStream(DWORD) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE AddInputStreams(DWORD, DWORD*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetInputStatus(DWORD, DWORD*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetOutputStatus(DWORD*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetOutputBounds(LONGLONG, LONGLONG) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE ProcessEvent(DWORD, IMFMediaEvent*) override { return E_NOTIMPL; }
};

}  // namespace Veldrift::Transforms
