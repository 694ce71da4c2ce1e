#include "tests/transforms/encoder_client.h"

#include <mferror.h>

#include <algorithm>
#include <random>

#include "tests/transforms/common/vendor_attribute.h"

namespace Veldrift::Transforms {
namespace {

std::string TextOf(IMFActivate& activation, REFGUID key) {
  LPWSTR text = nullptr;
  UINT32 length = 0;
  if (FAILED(activation.GetAllocatedString(key, &text, &length))) return "";
  const std::string narrow(text, text + length);
  CoTaskMemFree(text);
  return narrow;
}

HRESULT DescribeType(IMFMediaType& type, const GUID& subtype) {
  type.SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
  type.SetGUID(MF_MT_SUBTYPE, subtype);
  type.SetUINT32(MF_MT_INTERLACE_MODE, MFVideoInterlace_Progressive);
  MFSetAttributeRatio(&type, MF_MT_FRAME_RATE, kFps, 1);
  MFSetAttributeRatio(&type, MF_MT_PIXEL_ASPECT_RATIO, 1, 1);
  return MFSetAttributeSize(&type, MF_MT_FRAME_SIZE, kWidth, kHeight);
}

std::vector<uint8_t> BytesOf(IMFSample& sample) {
  ComPtr<IMFMediaBuffer> buffer;
  BYTE* bytes = nullptr;
  DWORD length = 0;
  if (FAILED(sample.ConvertToContiguousBuffer(buffer.Put())) ||
      FAILED(buffer->Lock(&bytes, nullptr, &length))) {
    return {};
  }
  std::vector<uint8_t> copy(bytes, bytes + length);
  buffer->Unlock();
  return copy;
}

}  // namespace

std::vector<Listed> ListEncoders(bool hevc, UINT32 flags) {
  const MFT_REGISTER_TYPE_INFO output = {MFMediaType_Video,
                                         hevc ? MFVideoFormat_HEVC : MFVideoFormat_H264};
  IMFActivate** list = nullptr;
  UINT32 count = 0;
  std::vector<Listed> encoders;
  if (FAILED(MFTEnumEx(MFT_CATEGORY_VIDEO_ENCODER, flags, nullptr, &output, &list, &count))) {
    return encoders;
  }
  for (UINT32 place = 0; place < count; ++place) {
    ComPtr<IMFActivate> activation;
    *activation.Put() = list[place];
    encoders.push_back({TextOf(*list[place], MFT_FRIENDLY_NAME_Attribute),
                        TextOf(*list[place], kVendorAttribute), activation});
  }
  CoTaskMemFree(list);
  return encoders;
}

// The same for the same frame; noise is what rates are spent on.
std::vector<uint8_t> PictureAt(int frame) {
  constexpr size_t kLuma = size_t{kWidth} * kHeight;
  constexpr int kNoiseFrom = 144;
  constexpr uint32_t kNoise = 32;
  std::minstd_rand random(static_cast<uint32_t>(frame + 1));
  std::vector<uint8_t> picture(kLuma * 3 / 2);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const bool patch = x < kPatchSide && y < kPatchSide;
      const uint32_t noise = x < kNoiseFrom ? 0 : random() % kNoise;
      picture[static_cast<size_t>(y * kWidth + x)] =
          patch ? kPatchLuma
                : static_cast<uint8_t>(16 + static_cast<uint32_t>(x + y + frame * 4) % 180 + noise);
    }
  }
  for (int y = 0; y < kHeight / 2; ++y) {
    for (int x = 0; x < kWidth / 2; ++x) {
      const bool patch = x < kPatchSide / 2 && y < kPatchSide / 2;
      uint8_t* pair = &picture[kLuma + static_cast<size_t>(y * kWidth + 2 * x)];
      pair[0] = patch ? kPatchCb : 128;
      pair[1] = patch ? kPatchCr : static_cast<uint8_t>(100 + x % 50);
    }
  }
  return picture;
}

ComPtr<IMFSample> SampleOf(const std::vector<uint8_t>& picture, int frame) {
  ComPtr<IMFSample> sample;
  ComPtr<IMFMediaBuffer> buffer;
  MFCreateSample(sample.Put());
  MFCreateMemoryBuffer(static_cast<DWORD>(picture.size()), buffer.Put());
  BYTE* bytes = nullptr;
  buffer->Lock(&bytes, nullptr, nullptr);
  std::copy(picture.begin(), picture.end(), bytes);
  buffer->Unlock();
  buffer->SetCurrentLength(static_cast<DWORD>(picture.size()));
  sample->AddBuffer(buffer.Get());
  sample->SetSampleTime(frame * kFrameTime);
  sample->SetSampleDuration(kFrameTime);
  return sample;
}

EncoderClient::~EncoderClient() {
  events_.Reset();
  properties_.Reset();
  transform_.Reset();
}

HRESULT EncoderClient::Open() {
  for (const auto step :
       {&EncoderClient::Activate, &EncoderClient::Unlock, &EncoderClient::NegotiateOutput,
        &EncoderClient::NegotiateInput, &EncoderClient::Start}) {
    if (const HRESULT result = (this->*step)(); FAILED(result)) return result;
  }
  return S_OK;
}

HRESULT EncoderClient::Activate() {
  const std::vector<Listed> encoders = ListEncoders(hevc_);
  if (encoders.empty()) return MF_E_NOT_FOUND;
  const HRESULT result =
      encoders[0].activation->ActivateObject(__uuidof(IMFTransform), transform_.PutVoid());
  if (FAILED(result)) return result;
  transform_->QueryInterface(IID_ICodecAPI, properties_.PutVoid());
  transform_->QueryInterface(__uuidof(IMFMediaEventGenerator), events_.PutVoid());
  return S_OK;
}

HRESULT EncoderClient::Unlock() {
  ComPtr<IMFAttributes> attributes;
  if (const HRESULT result = transform_->GetAttributes(attributes.Put()); FAILED(result)) {
    return result;
  }
  UINT32 async = 0;
  attributes->GetUINT32(MF_TRANSFORM_ASYNC, &async);
  async_ = async != 0;
  return async_ ? attributes->SetUINT32(MF_TRANSFORM_ASYNC_UNLOCK, TRUE) : S_OK;
}

HRESULT EncoderClient::NegotiateOutput() {
  constexpr UINT32 kMain = 1;
  constexpr UINT32 kHigh = 100;
  ComPtr<IMFMediaType> type;
  MFCreateMediaType(type.Put());
  DescribeType(*type.Get(), hevc_ ? MFVideoFormat_HEVC : MFVideoFormat_H264);
  type->SetUINT32(MF_MT_AVG_BITRATE, kBitRate);
  type->SetUINT32(MF_MT_MPEG2_PROFILE, hevc_ ? kMain : kHigh);
  return transform_->SetOutputType(0, type.Get(), 0);
}

HRESULT EncoderClient::NegotiateInput() {
  ComPtr<IMFMediaType> type;
  MFCreateMediaType(type.Put());
  DescribeType(*type.Get(), MFVideoFormat_NV12);
  return transform_->SetInputType(0, type.Get(), 0);
}

HRESULT EncoderClient::Start() {
  Message(MFT_MESSAGE_NOTIFY_BEGIN_STREAMING);
  return Message(MFT_MESSAGE_NOTIFY_START_OF_STREAM);
}

HRESULT EncoderClient::Set(const GUID& property, uint32_t value) {
  VARIANT variant;
  VariantInit(&variant);
  V_VT(&variant) = VT_UI4;
  V_UI4(&variant) = value;
  return properties_ ? properties_->SetValue(&property, &variant) : E_NOINTERFACE;
}

HRESULT EncoderClient::Message(MFT_MESSAGE_TYPE message, ULONG_PTR value) {
  return transform_->ProcessMessage(message, value);
}

HRESULT EncoderClient::Take(Unit& unit) {
  MFT_OUTPUT_STREAM_INFO info = {};
  HRESULT result = transform_->GetOutputStreamInfo(0, &info);
  if (FAILED(result)) return result;
  constexpr DWORD kUnknownSize = 1 << 20;
  const bool provides = (info.dwFlags & MFT_OUTPUT_STREAM_PROVIDES_SAMPLES) != 0;
  ComPtr<IMFSample> sample;
  if (!provides) {
    sample = SampleOf(std::vector<uint8_t>(info.cbSize == 0 ? kUnknownSize : info.cbSize), 0);
  }
  MFT_OUTPUT_DATA_BUFFER buffer = {};
  buffer.pSample = sample.Get();
  DWORD status = 0;
  result = transform_->ProcessOutput(0, 1, &buffer, &status);
  if (provides) *sample.Put() = buffer.pSample;
  if (FAILED(result)) return result;
  UINT32 clean = 0;
  sample->GetUINT32(MFSampleExtension_CleanPoint, &clean);
  sample->GetSampleTime(&unit.time);
  sample->GetSampleDuration(&unit.duration);
  unit.clean = clean != 0;
  unit.bytes = BytesOf(*sample.Get());
  return S_OK;
}

HRESULT EncoderClient::EncodeOne(IMFSample& sample, Unit& unit) {
  WaitFor(METransformNeedInput);
  const HRESULT result = PutSample(sample);
  if (FAILED(result)) return result;
  WaitFor(METransformHaveOutput);
  return Take(unit);
}

HRESULT EncoderClient::Renegotiate() {
  ComPtr<IMFMediaType> type;
  const HRESULT result = transform_->GetOutputAvailableType(0, 0, type.Put());
  return FAILED(result) ? result : transform_->SetOutputType(0, type.Get(), 0);
}

std::vector<uint8_t> EncoderClient::Header() {
  ComPtr<IMFMediaType> type;
  UINT8* blob = nullptr;
  UINT32 size = 0;
  if (FAILED(transform_->GetOutputCurrentType(0, type.Put())) ||
      FAILED(type->GetAllocatedBlob(MF_MT_MPEG_SEQUENCE_HEADER, &blob, &size))) {
    return {};
  }
  std::vector<uint8_t> header(blob, blob + size);
  CoTaskMemFree(blob);
  return header;
}

MediaEventType EncoderClient::Event(HRESULT* status) {
  ComPtr<IMFMediaEvent> event;
  MediaEventType type = MEUnknown;
  if (FAILED(events_->GetEvent(0, event.Put()))) return type;
  event->GetType(&type);
  if (status) event->GetStatus(status);
  return type;
}

HRESULT EncoderClient::WaitFor(MediaEventType type) {
  HRESULT status = S_OK;
  while (async_) {
    const MediaEventType came = Event(&status);
    if (came == type) break;
    if (came == MEUnknown) return E_UNEXPECTED;
  }
  return status;
}

void EncoderClient::TakeAll(std::vector<Unit>& units) {
  for (;;) {
    Unit unit;
    const HRESULT result = Take(unit);
    if (result == MF_E_TRANSFORM_STREAM_CHANGE && SUCCEEDED(Renegotiate())) continue;
    if (FAILED(result)) return;
    units.push_back(unit);
  }
}

std::vector<Unit> EncoderClient::Encode(int first, int count) {
  if (async_) return EncodeByEvents(first, count);
  std::vector<Unit> units;
  for (int frame = first; frame < first + count; ++frame) {
    HRESULT result = Put(frame);
    if (result == MF_E_NOTACCEPTING) {
      TakeAll(units);
      result = Put(frame);
    }
    if (FAILED(result)) return units;
    TakeAll(units);
  }
  return units;
}

std::vector<Unit> EncoderClient::EncodeByEvents(int first, int count) {
  std::vector<Unit> units;
  int next = first;
  while (units.size() < static_cast<size_t>(count)) {
    if (credits_ > 0 && next < first + count) {
      --credits_;
      if (FAILED(Put(next++))) return units;
      continue;
    }
    const MediaEventType type = Event();
    if (type == METransformNeedInput) ++credits_;
    if (type == MEError || type == MEUnknown) return units;
    if (type != METransformHaveOutput) continue;
    Unit unit;
    const HRESULT result = Take(unit);
    if (result == MF_E_TRANSFORM_STREAM_CHANGE && SUCCEEDED(Renegotiate())) continue;
    if (FAILED(result)) return units;
    units.push_back(unit);
  }
  return units;
}

std::vector<Unit> EncoderClient::Drain() {
  std::vector<Unit> units;
  if (FAILED(Message(MFT_MESSAGE_COMMAND_DRAIN))) return units;
  if (!async_) TakeAll(units);
  while (async_) {
    const MediaEventType type = Event();
    if (type == METransformDrainComplete || type == MEError || type == MEUnknown) break;
    Unit unit;
    if (type == METransformHaveOutput && SUCCEEDED(Take(unit))) units.push_back(unit);
  }
  credits_ = 0;
  return units;
}

}  // namespace Veldrift::Transforms
