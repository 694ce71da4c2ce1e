// ICodecAPI of a transform: takes the properties, checks their types, and says what they come to.
#pragma once

#include <icodecapi.h>
#include <windows.h>

#include <mutex>

#include "tests/transforms/module/call_gate.h"
#include "tests/transforms/module/codec.h"

namespace Veldrift::Transforms {

// Part of its transform, whose references it counts.
// Threads: any.
class CodecProperties final : public ICodecAPI {
 public:
  CodecProperties(IUnknown& transform, CallGate& gate) : transform_(transform), gate_(gate) {}
  virtual ~CodecProperties() = default;

  // The rate of the output type, until a property says another.
  void SetDefaultRate(uint32_t bitsPerSecond);
  Rates CurrentRates();
  // Frames from one key frame to the next; 0: as many as there are.
  uint32_t GopSize();
  // What was ordered for one frame; the next one has no order.
  FrameOrder TakeOrder();

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    return transform_.QueryInterface(iid, object);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return transform_.AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return transform_.Release(); }

  HRESULT STDMETHODCALLTYPE IsSupported(const GUID* property) override;
  HRESULT STDMETHODCALLTYPE IsModifiable(const GUID* property) override;
  HRESULT STDMETHODCALLTYPE GetValue(const GUID* property, VARIANT* value) override;
  HRESULT STDMETHODCALLTYPE SetValue(const GUID* property, VARIANT* value) override;

  HRESULT STDMETHODCALLTYPE GetParameterRange(const GUID*, VARIANT*, VARIANT*, VARIANT*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetParameterValues(const GUID*, VARIANT**, ULONG*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetDefaultValue(const GUID*, VARIANT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE RegisterForEvent(const GUID*, LONG_PTR) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE UnregisterForEvent(const GUID*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetAllDefaults() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetValueWithNotify(const GUID*, VARIANT*, GUID**, ULONG*) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE SetAllDefaultsWithNotify(GUID**, ULONG*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetAllSettings(IStream*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetAllSettings(IStream*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE SetAllSettingsWithNotify(IStream*, GUID**, ULONG*) override {
    return E_NOTIMPL;
  }

 private:
  struct Property;
  static const Property kProperties[];
  static const Property* Find(const GUID* property);

  static constexpr uint32_t kUnset = 0xFFFFFFFF;

  IUnknown& transform_;
  CallGate& gate_;
  std::mutex mutex_;
  // Guarded by mutex_.
  uint32_t lowLatency_ = kUnset;
  uint32_t realTime_ = kUnset;
  uint32_t rateMode_ = kUnset;
  uint32_t meanRate_ = kUnset;
  uint32_t maxRate_ = kUnset;
  uint32_t quality_ = kUnset;
  uint32_t gopSize_ = kUnset;
  uint32_t bPictures_ = kUnset;
  uint32_t forceKeyFrame_ = kUnset;
  uint32_t encodeQp_ = kUnset;
  uint32_t defaultRate_ = 0;
};

}  // namespace Veldrift::Transforms
