#include "encoder/mf/mf_transform_source.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "encoder/hardware_encoder.h"
#include "encoder/mf/mf_transform.h"

namespace Veldrift {
namespace {

constexpr size_t kMostNameCharacters = 256;
constexpr size_t kMostVendorCharacters = 64;
constexpr const char* kUnknownName = "<unknown MFT>";

// The classes' flags are alternatives: "synchronous or hardware".
UINT32 FlagsOf(TransformClass kind) {
  switch (kind) {
    case TransformClass::HardwareSync:
      return MFT_ENUM_FLAG_SYNCMFT | MFT_ENUM_FLAG_HARDWARE;
    case TransformClass::HardwareAsync:
      return MFT_ENUM_FLAG_ASYNCMFT | MFT_ENUM_FLAG_HARDWARE;
    case TransformClass::Software:
      return MFT_ENUM_FLAG_SYNCMFT;
  }
  return 0;
}

using Activates = std::vector<ComPtr<IMFActivate>>;

Activates List(const MediaApi& media, UINT32 flags, const GUID& subtype) {
  const MFT_REGISTER_TYPE_INFO output{MFMediaType_Video, subtype};
  IMFActivate** entries = nullptr;
  UINT32 count = 0;
  const HRESULT result =
      media.enumTransforms(MFT_CATEGORY_VIDEO_ENCODER, flags | MFT_ENUM_FLAG_SORTANDFILTER, nullptr,
                           &output, &entries, &count);
  const CoTaskMemory<IMFActivate*> array(entries);
  Activates found;
  if (FAILED(result) || entries == nullptr) return found;
  found.resize(count);
  for (UINT32 i = 0; i < count; ++i) Adopt(found[i], entries[i]);
  return found;
}

// In UTF-8; empty if there is none.
std::string ReadText(IMFActivate& activate, const GUID& key, size_t mostCharacters) {
  WCHAR* text = nullptr;
  UINT32 length = 0;
  if (FAILED(activate.GetAllocatedString(key, &text, &length))) return {};
  const CoTaskMemory<WCHAR> owner(text);
  return NarrowText(std::wstring_view(text, std::min<size_t>(length, mostCharacters)));
}

std::string ReadVendor(IMFActivate& activate) {
  return ReadText(activate, kMftHardwareVendorId, kMostVendorCharacters);
}

class MfCandidate final : public TransformCandidate {
 public:
  MfCandidate(const MediaApi& media, ComPtr<IMFActivate> activate,
              ComPtr<IMFDXGIDeviceManager> manager)
      : media_(media), activate_(std::move(activate)), manager_(std::move(manager)) {}

  std::string Name() override {
    const std::string name =
        ReadText(*activate_.Get(), MFT_FRIENDLY_NAME_Attribute, kMostNameCharacters);
    return name.empty() ? kUnknownName : name;
  }
  std::string Vendor() override { return ReadVendor(*activate_.Get()); }
  std::unique_ptr<EncoderTransform> Activate(int32_t& error) override {
    ComPtr<IMFTransform> transform;
    error = activate_->ActivateObject(__uuidof(IMFTransform), &transform);
    if (FAILED(error)) return nullptr;
    return std::make_unique<MfTransform>(media_, std::move(transform), manager_);
  }

 private:
  const MediaApi& media_;
  const ComPtr<IMFActivate> activate_;
  const ComPtr<IMFDXGIDeviceManager> manager_;
};

}  // namespace

std::vector<std::unique_ptr<TransformCandidate>> FindCandidates(
    const MediaApi& media, TransformClass kind, int32_t codec,
    const ComPtr<IMFDXGIDeviceManager>& manager) {
  const GUID& subtype = codec == kCodecH264 ? MFVideoFormat_H264 : MFVideoFormat_HEVC;
  std::vector<std::unique_ptr<TransformCandidate>> candidates;
  for (ComPtr<IMFActivate>& activate : List(media, FlagsOf(kind), subtype)) {
    candidates.push_back(std::make_unique<MfCandidate>(media, std::move(activate), manager));
  }
  return candidates;
}

HardwareSeen FindHardware(const MediaApi& media) {
  HardwareSeen seen;
  for (const GUID* subtype : {&MFVideoFormat_H264, &MFVideoFormat_HEVC}) {
    for (const ComPtr<IMFActivate>& activate : List(media, MFT_ENUM_FLAG_HARDWARE, *subtype)) {
      NoteVendor(ReadVendor(*activate.Get()), seen);
    }
  }
  return seen;
}

}  // namespace Veldrift
