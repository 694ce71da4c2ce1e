#include "encoder/transform_negotiation.h"

#include "encoder/hresult_name.h"
#include "support/plugin_log.h"

namespace Veldrift {
namespace {

constexpr LogCategory kCategory{kLogSubsystem, "encoder"};

constexpr uint32_t kMostInputTypes = 1'000;

bool Unlock(EncoderTransform& transform, const char* className, bool allowed) {
  if (!allowed) {
    PluginLog(kCategory, kLogInfo,
              "  [%s] async MFT — skipping (Setup → \"Use NVIDIA/Intel HW HEVC encoders\" is OFF)",
              className);
    return false;
  }
  int32_t readError = 0;
  const int32_t unlockError = transform.UnlockAsynchronous(readError);
  if (readError < 0) {
    PluginLog(kCategory, kLogInfo, "  [%s] async-MFT GetAttributes failed %s — skipping", className,
              HresultName(readError).c_str());
    return false;
  }
  if (unlockError < 0) {
    PluginLog(kCategory, kLogInfo, "  [%s] ASYNC_UNLOCK failed %s — skipping", className,
              HresultName(unlockError).c_str());
    return false;
  }
  PluginLog(kCategory, kLogInfo, "  [%s] async MFT — unlocked, will drive via events", className);
  return true;
}

bool OfferDevice(EncoderTransform& transform) {
  const std::optional<int32_t> answer = transform.OfferDevice();
  if (!answer) return false;
  if (*answer >= 0) return true;
  PluginLog(kCategory, kLogInfo, "  SET_D3D_MANAGER rejected %s — MFT runs SW",
            HresultName(*answer).c_str());
  return false;
}

// The first NV12 among the types that it offers; nothing if there is none. A list has an end, also
// where the transform gives none.
std::optional<uint32_t> FindNv12(EncoderTransform& transform) {
  for (uint32_t index = 0; index < kMostInputTypes; ++index) {
    switch (transform.OfferedInput(index)) {
      case EncoderTransform::InputOffer::Nv12:
        return index;
      case EncoderTransform::InputOffer::Other:
        continue;
      case EncoderTransform::InputOffer::NoMore:
        return std::nullopt;
    }
  }
  return std::nullopt;
}

bool SetTypes(EncoderTransform& transform, const TransformFormat& format, const char* className) {
  const char* step = "SetOutputType";
  int32_t error = transform.SetOutputType(format);
  if (error >= 0) {
    step = "SetInputType";
    error = transform.SetInputType(format, FindNv12(transform));
  }
  if (error >= 0) return true;
  PluginLog(kCategory, kLogInfo, "  [%s] %s rejected %s — skipping", className, step,
            HresultName(error).c_str());
  return false;
}

}  // namespace

Negotiated NegotiateTransform(EncoderTransform& transform, const TransformFormat& format,
                              const char* className, bool allowAsynchronous) {
  Negotiated result;
  result.asynchronous = transform.IsAsynchronous();
  if (result.asynchronous && !Unlock(transform, className, allowAsynchronous)) return result;
  result.tookDevice = OfferDevice(transform);
  result.accepted = SetTypes(transform, format, className);
  return result;
}

}  // namespace Veldrift
