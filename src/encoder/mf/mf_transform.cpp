#include "encoder/mf/mf_transform.h"

#include <utility>

#include "encoder/hardware_encoder.h"
#include "encoder/mf/mf_samples.h"

namespace Veldrift {
namespace {

constexpr UINT32 kProgressive = 2;
constexpr UINT32 kH264High = 100;
constexpr UINT32 kHevcMain = 1;
constexpr DWORD kProvidesSamples = 0x100;
constexpr DWORD kUsualOutputBytes = 0x100000;

// Two numbers in one attribute: a size, or a ratio.
constexpr UINT64 Pair(int32_t high, int32_t low) {
  return static_cast<UINT64>(static_cast<UINT32>(high)) << 32 | static_cast<UINT32>(low);
}

// What both sides have in common.
HRESULT SetPicture(IMFMediaType& type, const TransformFormat& format) {
  HRESULT result = type.SetUINT64(MF_MT_FRAME_SIZE, Pair(format.width, format.height));
  if (SUCCEEDED(result)) result = type.SetUINT64(MF_MT_FRAME_RATE, Pair(format.fps, 1));
  if (SUCCEEDED(result)) result = type.SetUINT64(MF_MT_PIXEL_ASPECT_RATIO, Pair(1, 1));
  if (SUCCEEDED(result)) result = type.SetUINT32(MF_MT_INTERLACE_MODE, kProgressive);
  return result;
}

const GUID& KeyOf(CodecProperty property) {
  switch (property) {
    case CodecProperty::LowLatency:
      return CODECAPI_AVLowLatencyMode;
    case CodecProperty::RealTime:
      return CODECAPI_AVEncCommonRealTime;
    case CodecProperty::RateControlMode:
      return CODECAPI_AVEncCommonRateControlMode;
    case CodecProperty::MeanBitRate:
      return CODECAPI_AVEncCommonMeanBitRate;
    case CodecProperty::MaxBitRate:
      return CODECAPI_AVEncCommonMaxBitRate;
    case CodecProperty::Quality:
      return CODECAPI_AVEncCommonQuality;
    case CodecProperty::GopSize:
      return CODECAPI_AVEncMPVGOPSize;
    case CodecProperty::BPictureCount:
      return CODECAPI_AVEncMPVDefaultBPictureCount;
    case CodecProperty::ForceKeyFrame:
      return CODECAPI_AVEncVideoForceKeyFrame;
    case CodecProperty::EncodeQp:
      return CODECAPI_AVEncVideoEncodeQP;
  }
  return GUID_NULL;
}

MFT_MESSAGE_TYPE NumberOf(TransformMessage message) {
  switch (message) {
    case TransformMessage::Flush:
      return MFT_MESSAGE_COMMAND_FLUSH;
    case TransformMessage::Drain:
      return MFT_MESSAGE_COMMAND_DRAIN;
    case TransformMessage::BeginStreaming:
      return MFT_MESSAGE_NOTIFY_BEGIN_STREAMING;
    case TransformMessage::StartOfStream:
      return MFT_MESSAGE_NOTIFY_START_OF_STREAM;
    case TransformMessage::EndOfStream:
      return MFT_MESSAGE_NOTIFY_END_OF_STREAM;
    case TransformMessage::EndStreaming:
      return MFT_MESSAGE_NOTIFY_END_STREAMING;
  }
  return MFT_MESSAGE_COMMAND_FLUSH;
}

// The sample's bytes in one piece; none if it can't be read.
void HandOver(IMFSample& sample, TransformOutputSink& sink) {
  ComPtr<IMFMediaBuffer> buffer;
  if (FAILED(sample.ConvertToContiguousBuffer(&buffer))) return;
  const LockedBuffer locked(std::move(buffer));
  if (locked.Bytes().empty()) return;
  UINT32 cleanPoint = 0;
  sample.GetUINT32(MFSampleExtension_CleanPoint, &cleanPoint);
  LONGLONG time = 0;
  const bool timed = SUCCEEDED(sample.GetSampleTime(&time));
  sink.OnOutput(locked.Bytes(), cleanPoint != 0,
                timed ? std::optional<int64_t>(time) : std::nullopt);
}

EncoderTransform::Output::Answer AnswerOf(HRESULT result) {
  using Answer = EncoderTransform::Output::Answer;
  if (SUCCEEDED(result)) return Answer::Taken;
  if (result == transform_error::kNeedMoreInput) return Answer::NeedMoreInput;
  if (result == transform_error::kStreamChange) return Answer::StreamChange;
  return Answer::Failed;
}

}  // namespace

MfTransform::MfTransform(const MediaApi& media, ComPtr<IMFTransform> transform,
                         ComPtr<IMFDXGIDeviceManager> manager)
    : media_(media), transform_(std::move(transform)), manager_(std::move(manager)) {
  transform_.As(&codec_);
}

MfTransform::~MfTransform() {
  CloseEvents();
  ComPtr<IMFShutdown> shutdown;
  if (asynchronous_ && SUCCEEDED(transform_.As(&shutdown))) shutdown->Shutdown();
}

// ---- Negotiation ----

bool MfTransform::ReadFlag(const GUID& key) const {
  ComPtr<IMFAttributes> attributes;
  UINT32 value = 0;
  return SUCCEEDED(transform_->GetAttributes(&attributes)) &&
         SUCCEEDED(attributes->GetUINT32(key, &value)) && value != 0;
}

bool MfTransform::IsAsynchronous() {
  asynchronous_ = ReadFlag(MF_TRANSFORM_ASYNC);
  return asynchronous_;
}

bool MfTransform::IsD3d11Aware() { return ReadFlag(MF_SA_D3D11_AWARE); }

int32_t MfTransform::UnlockAsynchronous(int32_t& readError) {
  ComPtr<IMFAttributes> attributes;
  readError = transform_->GetAttributes(&attributes);
  if (FAILED(readError)) return readError;
  return attributes->SetUINT32(MF_TRANSFORM_ASYNC_UNLOCK, 1);
}

std::optional<int32_t> MfTransform::OfferDevice() {
  if (!manager_) return std::nullopt;
  return transform_->ProcessMessage(MFT_MESSAGE_SET_D3D_MANAGER,
                                    reinterpret_cast<ULONG_PTR>(manager_.Get()));
}

HRESULT MfTransform::MakeType(ComPtr<IMFMediaType>& type, const GUID& subtype) const {
  HRESULT result = media_.createMediaType(&type);
  if (SUCCEEDED(result)) result = type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
  if (SUCCEEDED(result)) result = type->SetGUID(MF_MT_SUBTYPE, subtype);
  return result;
}

int32_t MfTransform::SetOutputType(const TransformFormat& format) {
  const bool h264 = format.codec == kCodecH264;
  ComPtr<IMFMediaType> type;
  HRESULT result = MakeType(type, h264 ? MFVideoFormat_H264 : MFVideoFormat_HEVC);
  if (SUCCEEDED(result)) result = type->SetUINT32(MF_MT_AVG_BITRATE, format.bitrate);
  if (SUCCEEDED(result)) result = SetPicture(*type.Get(), format);
  if (SUCCEEDED(result)) {
    result = type->SetUINT32(MF_MT_MPEG2_PROFILE, h264 ? kH264High : kHevcMain);
  }
  if (SUCCEEDED(result)) result = transform_->SetOutputType(0, type.Get(), 0);
  return result;
}

EncoderTransform::InputOffer MfTransform::OfferedInput(uint32_t index) {
  ComPtr<IMFMediaType> type;
  if (FAILED(transform_->GetInputAvailableType(0, index, &type)) || !type) {
    return InputOffer::NoMore;
  }
  GUID subtype = GUID_NULL;
  type->GetGUID(MF_MT_SUBTYPE, &subtype);
  return subtype == MFVideoFormat_NV12 ? InputOffer::Nv12 : InputOffer::Other;
}

int32_t MfTransform::SetInputType(const TransformFormat& format, std::optional<uint32_t> offered) {
  ComPtr<IMFMediaType> type;
  HRESULT result = offered ? transform_->GetInputAvailableType(0, *offered, &type)
                           : MakeType(type, MFVideoFormat_NV12);
  if (SUCCEEDED(result)) result = SetPicture(*type.Get(), format);
  if (SUCCEEDED(result)) result = transform_->SetInputType(0, type.Get(), 0);
  return result;
}

// ---- Settings ----

int32_t MfTransform::SetProperty(CodecProperty property, uint32_t value) {
  if (!codec_) return E_NOINTERFACE;
  VARIANT variant{};  // neither form owns anything
  if (property == CodecProperty::LowLatency) {
    variant.vt = VT_BOOL;
    variant.boolVal = value != 0 ? VARIANT_TRUE : VARIANT_FALSE;
  } else {
    variant.vt = VT_UI4;
    variant.ulVal = value;
  }
  HRESULT result = codec_->SetValue(&KeyOf(property), &variant);
  if (FAILED(result) && property == CodecProperty::EncodeQp) {
    variant.vt = VT_UI8;  // as the platform documents this one; encoders differ
    variant.ullVal = value;
    result = codec_->SetValue(&KeyOf(property), &variant);
  }
  return result;
}

std::vector<uint8_t> MfTransform::SequenceHeader() {
  ComPtr<IMFMediaType> type;
  UINT32 bytes = 0;
  if (FAILED(transform_->GetOutputCurrentType(0, &type)) || !type ||
      FAILED(type->GetBlobSize(MF_MT_MPEG_SEQUENCE_HEADER, &bytes)) || bytes == 0) {
    return {};
  }
  std::vector<uint8_t> header(bytes);
  if (FAILED(type->GetBlob(MF_MT_MPEG_SEQUENCE_HEADER, header.data(), bytes, nullptr))) return {};
  return header;
}

// ---- The stream ----

int32_t MfTransform::SendMessage(TransformMessage message) {
  return transform_->ProcessMessage(NumberOf(message), 0);
}

int32_t MfTransform::ProcessInput(TransformSample& sample) {
  return transform_->ProcessInput(0, static_cast<MfSample&>(sample).Get(), 0);
}

HRESULT MfTransform::MakeOutputSample(DWORD bytes, ComPtr<IMFSample>& sample) const {
  ComPtr<IMFMediaBuffer> buffer;
  HRESULT result = media_.createSample(&sample);
  if (SUCCEEDED(result)) result = media_.createMemoryBuffer(bytes, &buffer);
  if (SUCCEEDED(result)) result = sample->AddBuffer(buffer.Get());
  return result;
}

EncoderTransform::Output MfTransform::TakeOutput(TransformOutputSink& sink) {
  MFT_OUTPUT_STREAM_INFO info{};
  ComPtr<IMFSample> sample;
  HRESULT result = transform_->GetOutputStreamInfo(0, &info);
  if (SUCCEEDED(result) && (info.dwFlags & kProvidesSamples) == 0) {
    result = MakeOutputSample(info.cbSize != 0 ? info.cbSize : kUsualOutputBytes, sample);
  }
  if (FAILED(result)) return {Output::Answer::Unavailable, result};

  MFT_OUTPUT_DATA_BUFFER output{};
  output.pSample = sample.Get();
  DWORD status = 0;
  result = transform_->ProcessOutput(0, 1, &output, &status);
  ComPtr<IMFCollection> events;
  Adopt(events, output.pEvents);
  if (output.pSample != sample.Get()) Adopt(sample, output.pSample);
  if (SUCCEEDED(result) && sample) HandOver(*sample.Get(), sink);
  return {AnswerOf(result), result};
}

EncoderTransform::StreamChange MfTransform::AcceptStreamChange() {
  ComPtr<IMFMediaType> type;
  StreamChange change;
  change.got = transform_->GetOutputAvailableType(0, 0, &type);
  const bool offered = SUCCEEDED(change.got) && type;
  change.set = offered ? transform_->SetOutputType(0, type.Get(), 0) : E_FAIL;
  return change;
}

// ---- Events ----

int32_t MfTransform::OpenEvents() {
  ComPtr<IMFMediaEventGenerator> generator;
  const HRESULT result = transform_.As(&generator);
  if (SUCCEEDED(result)) Adopt(events_, new MfEventPump(std::move(generator)));
  return result;
}

int32_t MfTransform::RequestEvent(const std::shared_ptr<TransformEventListener>& listener) {
  return events_ ? events_->Request(listener) : E_UNEXPECTED;
}

void MfTransform::CloseEvents() {
  if (events_) events_->Close();
  events_.Reset();
}

}  // namespace Veldrift
