#include "tests/transforms/module/codec_properties.h"

#include <algorithm>
#include <string>

namespace Veldrift::Transforms {

struct CodecProperties::Property {
  GUID id;
  const char* name;
  VARTYPE type;
  uint32_t highest;
  uint32_t CodecProperties::*field;
};

const CodecProperties::Property CodecProperties::kProperties[] = {
    {{0x9c27891a, 0xed7a, 0x40e1, {0x88, 0xe8, 0xb2, 0x27, 0x27, 0xa0, 0x24, 0xee}},
     "LowLatencyMode",
     VT_BOOL,
     1,
     &CodecProperties::lowLatency_},
    {{0x143a0ff6, 0xa131, 0x43da, {0xb8, 0x1e, 0x98, 0xfb, 0xb8, 0xec, 0x37, 0x8e}},
     "CommonRealTime",
     VT_UI4,
     1,
     &CodecProperties::realTime_},
    {{0x1c0608e9, 0x370c, 0x4710, {0x8a, 0x58, 0xcb, 0x61, 0x81, 0xc4, 0x24, 0x23}},
     "RateControlMode",
     VT_UI4,
     3,
     &CodecProperties::rateMode_},
    {{0xf7222374, 0x2144, 0x4815, {0xb5, 0x50, 0xa3, 0x7f, 0x8e, 0x12, 0xee, 0x52}},
     "MeanBitRate",
     VT_UI4,
     kUnset,
     &CodecProperties::meanRate_},
    {{0x9651eae4, 0x39b9, 0x4ebf, {0x85, 0xef, 0xd7, 0xf4, 0x44, 0xec, 0x74, 0x65}},
     "MaxBitRate",
     VT_UI4,
     kUnset,
     &CodecProperties::maxRate_},
    {{0xfcbf57a3, 0x7ea5, 0x4b0c, {0x96, 0x44, 0x69, 0xb4, 0x0c, 0x39, 0xc3, 0x91}},
     "Quality",
     VT_UI4,
     100,
     &CodecProperties::quality_},
    {{0x95f31b26, 0x95a4, 0x41aa, {0x93, 0x03, 0x24, 0x6a, 0x7f, 0xc6, 0xee, 0xf1}},
     "GOPSize",
     VT_UI4,
     kUnset,
     &CodecProperties::gopSize_},
    {{0x8d390aac, 0xdc5c, 0x4200, {0xb5, 0x7f, 0x81, 0x4d, 0x04, 0xba, 0xba, 0xb2}},
     "BPictureCount",
     VT_UI4,
     0,
     &CodecProperties::bPictures_},
    {{0x398c1b98, 0x8353, 0x475a, {0x9e, 0xf2, 0x8f, 0x26, 0x5d, 0x26, 0x03, 0x45}},
     "VideoForceKeyFrame",
     VT_UI4,
     1,
     &CodecProperties::forceKeyFrame_},
    {{0x2cb5696b, 0x23fb, 0x4ce1, {0xa0, 0xf9, 0xef, 0x5b, 0x90, 0xfd, 0x55, 0xca}},
     "VideoEncodeQP",
     VT_UI4,
     51,
     &CodecProperties::encodeQp_},
};

const CodecProperties::Property* CodecProperties::Find(const GUID* property) {
  if (!property) return nullptr;
  const auto* found = std::find_if(std::begin(kProperties), std::end(kProperties),
                                   [&](const auto& known) { return known.id == *property; });
  return found == std::end(kProperties) ? nullptr : found;
}

void CodecProperties::SetDefaultRate(uint32_t bitsPerSecond) {
  const std::lock_guard lock(mutex_);
  defaultRate_ = bitsPerSecond;
}

Rates CodecProperties::CurrentRates() {
  const std::lock_guard lock(mutex_);
  Rates rates;
  if (rateMode_ != kUnset) rates.mode = static_cast<RateMode>(rateMode_);
  rates.mean = meanRate_ != kUnset && meanRate_ != 0 ? meanRate_ : defaultRate_;
  rates.peak = maxRate_ == kUnset ? rates.mean : std::max(maxRate_, rates.mean);
  if (quality_ != kUnset) rates.quality = quality_;
  return rates;
}

uint32_t CodecProperties::GopSize() {
  const std::lock_guard lock(mutex_);
  return gopSize_ == kUnset ? 0 : gopSize_;
}

FrameOrder CodecProperties::TakeOrder() {
  const std::lock_guard lock(mutex_);
  FrameOrder order;
  order.keyFrame = forceKeyFrame_ != kUnset && forceKeyFrame_ != 0;
  order.qp = encodeQp_ == kUnset ? -1 : static_cast<int>(encodeQp_);
  forceKeyFrame_ = encodeQp_ = kUnset;
  return order;
}

HRESULT CodecProperties::IsSupported(const GUID* property) {
  return Find(property) ? S_OK : E_NOTIMPL;
}

HRESULT CodecProperties::IsModifiable(const GUID* property) { return IsSupported(property); }

HRESULT CodecProperties::GetValue(const GUID* property, VARIANT* value) {
  return gate_.Answer("GetValue", [&](std::string& details) -> HRESULT {
    const Property* known = Find(property);
    if (!known || !value) return E_INVALIDARG;
    details = known->name;
    const std::lock_guard lock(mutex_);
    if (this->*known->field == kUnset) return E_NOTIMPL;
    V_VT(value) = known->type;
    if (known->type == VT_BOOL) {
      V_BOOL(value) = this->*known->field ? VARIANT_TRUE : VARIANT_FALSE;
    } else {
      V_UI4(value) = this->*known->field;
    }
    return S_OK;
  });
}

HRESULT CodecProperties::SetValue(const GUID* property, VARIANT* value) {
  return gate_.Answer("SetValue", [&](std::string& details) -> HRESULT {
    const Property* known = Find(property);
    if (!known || !value) return E_INVALIDARG;
    details = known->name;
    if (V_VT(value) != known->type) return E_INVALIDARG;
    const bool isTrue = known->type == VT_BOOL && V_BOOL(value) != VARIANT_FALSE;
    const uint32_t number = known->type == VT_BOOL ? isTrue : V_UI4(value);
    details += " " + std::to_string(number);
    if (number > known->highest) return E_INVALIDARG;
    if (const HRESULT result = gate_.Count(known->name); FAILED(result)) return result;
    const std::lock_guard lock(mutex_);
    this->*known->field = number;
    return S_OK;
  });
}

}  // namespace Veldrift::Transforms
