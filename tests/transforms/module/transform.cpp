#include "tests/transforms/module/transform.h"

#include <mfapi.h>
#include <mferror.h>

#include <utility>

#include "tests/transforms/module/platform.h"

namespace Veldrift::Transforms {

Transform::Transform(const Kind& kind, const Traits& traits, std::string who)
    : kind_(kind),
      traits_(traits),
      gate_(std::move(who), traits.failures),
      properties_(*static_cast<IMFTransform*>(this), gate_),
      events_(*static_cast<IMFTransform*>(this), gate_),
      encoding_(traits_, properties_),
      attributes_(MakeAttributes()),
      shelf_(traits_) {
  if (Async()) {
    attributes_->SetUINT32(MF_TRANSFORM_ASYNC, TRUE);
    attributes_->SetUINT32(MFT_SUPPORT_DYNAMIC_FORMAT_CHANGE, TRUE);
    worker_ = std::make_unique<Worker>();
  }
  attributes_->SetUINT32(MF_SA_D3D11_AWARE, traits_.d3d11Aware);
}

Transform::~Transform() {
  worker_.reset();
  NoteProvided(nullptr);
  gate_.Note("Released", kept_ > 0 ? std::to_string(kept_) + " samples kept" : "", S_OK);
}

HRESULT Transform::QueryInterface(REFIID iid, void** object) {
  if (!object) return E_POINTER;
  *object = nullptr;
  if (IsEqualGUID(iid, kUnknownId) || IsEqualGUID(iid, IID_IMFTransform)) {
    *object = static_cast<IMFTransform*>(this);
  } else if (IsEqualGUID(iid, IID_ICodecAPI) && SUCCEEDED(gate_.CountOrdered("ICodecAPI"))) {
    *object = static_cast<ICodecAPI*>(&properties_);
  } else if (Async() && IsEqualGUID(iid, IID_IMFMediaEventGenerator) &&
             SUCCEEDED(gate_.CountOrdered("IMFMediaEventGenerator"))) {
    *object = static_cast<IMFMediaEventGenerator*>(&events_);
  } else if (IsEqualGUID(iid, IID_IMFShutdown)) {
    *object = static_cast<IMFShutdown*>(this);
  } else {
    return E_NOINTERFACE;
  }
  AddRef();
  return S_OK;
}

ULONG Transform::Release() {
  const ULONG left = --references_;
  if (left == 0) delete this;
  return left;
}

bool Transform::Unlocked() const {
  UINT32 unlocked = 0;
  return !Async() ||
         (SUCCEEDED(attributes_->GetUINT32(MF_TRANSFORM_ASYNC_UNLOCK, &unlocked)) && unlocked != 0);
}

HRESULT Transform::Answer(const char* call,
                          const std::function<HRESULT(std::string& details)>& body) {
  return gate_.Answer(call, [&](std::string& details) {
    return Unlocked() ? body(details) : MF_E_TRANSFORM_ASYNC_LOCKED;
  });
}

// The one call that a locked transform answers.
HRESULT Transform::GetAttributes(IMFAttributes** attributes) {
  return gate_.Answer("GetAttributes", [&](std::string&) {
    *attributes = ComPtr(attributes_).Detach();
    return S_OK;
  });
}

HRESULT Transform::Shutdown() {
  return gate_.Answer("Shutdown", [&](std::string&) {
    gate_.Close(MF_E_SHUTDOWN);
    if (worker_) worker_->Clear();
    events_.Shutdown();
    return S_OK;
  });
}

HRESULT Transform::GetShutdownStatus(MFSHUTDOWN_STATUS* status) {
  *status = MFSHUTDOWN_COMPLETED;
  return gate_.Count("GetShutdownStatus") == MF_E_SHUTDOWN ? S_OK : MF_E_INVALIDREQUEST;
}

}  // namespace Veldrift::Transforms
