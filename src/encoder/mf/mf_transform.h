// An encoder transform of Media Foundation.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "encoder/encoder_transform.h"
#include "encoder/mf/com_scope.h"
#include "encoder/mf/mf_event_pump.h"
#include "encoder/mf/mf_libraries.h"

namespace Veldrift {

// Calls, and nothing that is decided; see the seam.
class MfTransform final : public EncoderTransform {
 public:
  // `manager` shares the graphics device; null if there is none.
  MfTransform(const MediaApi& media, ComPtr<IMFTransform> transform,
              ComPtr<IMFDXGIDeviceManager> manager);
  // Shuts an asynchronous one down, which the platform demands before its release.
  ~MfTransform() override;
  MfTransform(const MfTransform&) = delete;
  MfTransform& operator=(const MfTransform&) = delete;

  bool IsAsynchronous() override;
  int32_t UnlockAsynchronous(int32_t& readError) override;
  std::optional<int32_t> OfferDevice() override;
  int32_t SetOutputType(const TransformFormat& format) override;
  InputOffer OfferedInput(uint32_t index) override;
  int32_t SetInputType(const TransformFormat& format, std::optional<uint32_t> offered) override;
  bool IsD3d11Aware() override;

  bool HasProperties() override { return codec_ != nullptr; }
  int32_t SetProperty(CodecProperty property, uint32_t value) override;
  std::vector<uint8_t> SequenceHeader() override;

  int32_t SendMessage(TransformMessage message) override;
  int32_t ProcessInput(TransformSample& sample) override;
  Output TakeOutput(TransformOutputSink& sink) override;
  StreamChange AcceptStreamChange() override;

  int32_t OpenEvents() override;
  int32_t RequestEvent(const std::shared_ptr<TransformEventListener>& listener) override;
  void CloseEvents() override;

 private:
  HRESULT MakeType(ComPtr<IMFMediaType>& type, const GUID& subtype) const;
  HRESULT MakeOutputSample(DWORD bytes, ComPtr<IMFSample>& sample) const;
  bool ReadFlag(const GUID& key) const;

  const MediaApi& media_;
  const ComPtr<IMFTransform> transform_;
  const ComPtr<IMFDXGIDeviceManager> manager_;
  ComPtr<ICodecAPI> codec_;
  ComPtr<MfEventPump> events_;
  bool asynchronous_ = false;
};

}  // namespace Veldrift
