#include <mfapi.h>
#include <mferror.h>

#include <algorithm>
#include <utility>

#include "tests/transforms/common/environment.h"
#include "tests/transforms/module/picture_reader.h"
#include "tests/transforms/module/platform.h"
#include "tests/transforms/module/transform.h"

namespace Veldrift::Transforms {
namespace {

std::string Describe(IMFSample& sample) {
  LONGLONG time = -1;
  LONGLONG duration = -1;
  UINT32 clean = 0;
  DWORD bytes = 0;
  sample.GetSampleTime(&time);
  sample.GetSampleDuration(&duration);
  sample.GetUINT32(MFSampleExtension_CleanPoint, &clean);
  sample.GetTotalLength(&bytes);
  return "time=" + std::to_string(time) + " duration=" + std::to_string(duration) +
         " clean=" + std::to_string(clean) + " bytes=" + std::to_string(bytes);
}

void Keep(const Picture& picture) {
  if (ReadVariable(kPicturesVariable).empty()) return;
  std::string bytes(picture.luma.begin(), picture.luma.end());
  bytes.append(picture.chroma.begin(), picture.chroma.end());
  AppendTo(kPicturesVariable, bytes);
}

const char* MessageName(MFT_MESSAGE_TYPE message) {
  switch (message) {
    case MFT_MESSAGE_SET_D3D_MANAGER:
      return "SET_D3D_MANAGER";
    case MFT_MESSAGE_COMMAND_FLUSH:
      return "COMMAND_FLUSH";
    case MFT_MESSAGE_COMMAND_DRAIN:
      return "COMMAND_DRAIN";
    case MFT_MESSAGE_NOTIFY_BEGIN_STREAMING:
      return "NOTIFY_BEGIN_STREAMING";
    case MFT_MESSAGE_NOTIFY_END_STREAMING:
      return "NOTIFY_END_STREAMING";
    case MFT_MESSAGE_NOTIFY_START_OF_STREAM:
      return "NOTIFY_START_OF_STREAM";
    case MFT_MESSAGE_NOTIFY_END_OF_STREAM:
      return "NOTIFY_END_OF_STREAM";
    default:
      return "OTHER";
  }
}

HRESULT FillBuffer(IMFMediaBuffer& buffer, const Bytes& bytes) {
  BYTE* room = nullptr;
  DWORD length = 0;
  if (const HRESULT result = buffer.Lock(&room, &length, nullptr); FAILED(result)) return result;
  const bool fits = length >= bytes.size();
  if (fits) std::copy(bytes.begin(), bytes.end(), room);
  buffer.Unlock();
  return fits ? buffer.SetCurrentLength(static_cast<DWORD>(bytes.size())) : MF_E_BUFFERTOOSMALL;
}

HRESULT Fill(IMFSample& sample, const Output& output, const Traits& traits) {
  DWORD buffers = 0;
  sample.GetBufferCount(&buffers);
  auto from = output.bytes.begin();
  for (DWORD place = 0; place < buffers; ++place) {
    ComPtr<IMFMediaBuffer> buffer;
    if (const HRESULT result = sample.GetBufferByIndex(place, buffer.Put()); FAILED(result)) {
      return result;
    }
    const auto end = from + (output.bytes.end() - from) / static_cast<ptrdiff_t>(buffers - place);
    if (const HRESULT result = FillBuffer(*buffer.Get(), Bytes(from, end)); FAILED(result)) {
      return result;
    }
    from = end;
  }
  if (traits.timesOutputs) {
    sample.SetSampleTime(output.time);
    sample.SetSampleDuration(output.duration);
  }
  if (output.keyFrame && traits.marksCleanPoint)
    sample.SetUINT32(MFSampleExtension_CleanPoint, TRUE);
  return S_OK;
}

}  // namespace

// ---- Input
// ---------------------------------------------------------------------------------------

HRESULT Transform::AdmitInput(IMFSample& sample, Input& input) {
  const std::lock_guard lock(mutex_);
  if (!inputType_) return MF_E_TRANSFORM_TYPE_NOT_SET;
  if (traits_.dieAt != kNever && framesIn_ >= traits_.dieAt) {
    gate_.Close(traits_.deathResult);
    if (Async()) events_.Post(MEError, "Error", traits_.deathResult);
    return traits_.deathResult;
  }
  if (framesIn_ == traits_.refuseAt && !std::exchange(refused_, true)) return MF_E_NOTACCEPTING;
  if (Async() ? credits_ == 0 : shelf_.HasReady()) return MF_E_NOTACCEPTING;
  if (Async()) --credits_;
  input.sample = ComPtr(&sample);
  input.order = properties_.TakeOrder();
  input.stalled = traits_.stallAt != kNever && framesIn_ >= traits_.stallAt;
  ++framesIn_;
  return S_OK;
}

HRESULT Transform::ProcessInput(DWORD id, IMFSample* sample, DWORD) {
  return Answer("ProcessInput", [&](std::string& details) {
    if (id != 0) return MF_E_INVALIDSTREAMNUMBER;
    if (!sample) return E_POINTER;
    details = Describe(*sample) + (IsTexture(*sample) ? " in a texture" : " in memory");
    Input input;
    if (const HRESULT result = AdmitInput(*sample, input); FAILED(result)) return result;
    if (!Async()) return Encode(input);
    worker_->Add([this, input] { EncodeOnWorker(input); });
    return S_OK;
  });
}

HRESULT Transform::Encode(const Input& input) {
  if (input.stalled) return S_OK;
  Picture picture;
  CodecSize size;
  {
    const std::lock_guard lock(mutex_);
    size = format_.size;
  }
  const HRESULT read = ReadPicture(*input.sample.Get(), size.width, size.height, picture);
  if (FAILED(read)) return read;
  Keep(picture);
  Output output;
  input.sample->GetSampleTime(&output.time);
  input.sample->GetSampleDuration(&output.duration);
  if (!encoding_.Encode(picture, input.order, output)) return E_FAIL;
  const std::lock_guard lock(mutex_);
  const size_t ready = shelf_.Put(std::move(output));
  if (Async()) Announce(ready);
  return S_OK;
}

void Transform::EncodeOnWorker(const Input& input) {
  if (const HRESULT result = Encode(input); FAILED(result)) {
    events_.Post(MEError, "Error", result);
  }
  const std::lock_guard lock(mutex_);
  if (streaming_) GiveCredit();
}

void Transform::GiveCredit() {
  ++credits_;
  events_.Post(METransformNeedInput, "NeedInput");
}

void Transform::Announce(size_t outputs) {
  for (; outputs > 0; --outputs) {
    ++announced_;
    events_.Post(METransformHaveOutput, "HaveOutput");
  }
}

// ---- Output
// --------------------------------------------------------------------------------------

// What keeps the next output from being handed out, if anything does.
HRESULT Transform::ChooseOutput(MFT_OUTPUT_DATA_BUFFER& buffer) {
  if (renegotiating_) return MF_E_TRANSFORM_TYPE_NOT_SET;
  if (Async() && announced_ == 0) return E_UNEXPECTED;
  const bool withheld = framesIn_ == traits_.refuseAt && !refused_;
  if (!shelf_.HasReady() || withheld) return MF_E_TRANSFORM_NEED_MORE_INPUT;
  if (traits_.providesSamples == (buffer.pSample != nullptr)) return E_INVALIDARG;
  if (!shelf_.ChangeDue()) return S_OK;
  shelf_.ChangeAnnounced();
  changed_ = renegotiating_ = true;
  if (Async()) --announced_;
  buffer.dwStatus = MFT_OUTPUT_DATA_BUFFER_FORMAT_CHANGE;
  return MF_E_TRANSFORM_STREAM_CHANGE;
}

void Transform::NoteProvided(IMFSample* sample) {
  if (lastProvided_) {
    lastProvided_->AddRef();
    kept_ += lastProvided_->Release() > 1 ? 1 : 0;
  }
  lastProvided_ = ComPtr(sample);
}

HRESULT Transform::HandOut(MFT_OUTPUT_DATA_BUFFER& buffer, std::string& details) {
  const Output& output = shelf_.Front();
  ComPtr<IMFSample> provided;
  if (traits_.providesSamples) {
    provided = MakeSample(static_cast<DWORD>(output.bytes.size()), traits_.pieces);
    if (!provided) return E_OUTOFMEMORY;
  }
  IMFSample& sample = provided ? *provided.Get() : *buffer.pSample;
  if (const HRESULT result = Fill(sample, output, traits_); FAILED(result)) {
    return result;
  }
  details = Describe(sample);
  if (provided) {
    NoteProvided(provided.Get());
    buffer.pSample = provided.Detach();
  }
  shelf_.Pop();
  if (Async()) --announced_;
  return S_OK;
}

HRESULT Transform::ProcessOutput(DWORD, DWORD count, MFT_OUTPUT_DATA_BUFFER* buffers,
                                 DWORD* status) {
  return Answer("ProcessOutput", [&](std::string& details) {
    if (count != 1 || !buffers || !status) return E_INVALIDARG;
    *status = 0;
    const std::lock_guard lock(mutex_);
    if (!inputType_ || !outputType_) return MF_E_TRANSFORM_TYPE_NOT_SET;
    const HRESULT chosen = ChooseOutput(buffers[0]);
    return FAILED(chosen) ? chosen : HandOut(buffers[0], details);
  });
}

// ---- Messages
// ------------------------------------------------------------------------------------

HRESULT Transform::SetManager(IUnknown* manager) {
  const std::lock_guard lock(mutex_);
  if (!manager) {
    manager_.Reset();
    return S_OK;
  }
  if (!traits_.acceptsD3d) return E_NOTIMPL;
  ComPtr<IMFDXGIDeviceManager> accepted;
  if (FAILED(manager->QueryInterface(IID_IMFDXGIDeviceManager, accepted.PutVoid()))) {
    return MF_E_UNSUPPORTED_D3D_TYPE;
  }
  manager_ = ComPtr<IUnknown>(accepted.Get());
  return S_OK;
}

void Transform::Start() {
  const std::lock_guard lock(mutex_);
  if (!Async() || std::exchange(streaming_, true)) return;
  for (int credit = 0; credit < traits_.credits; ++credit) GiveCredit();
}

// The input's end: everything that is still inside comes out, and no more input is asked for.
void Transform::Drain() {
  if (!Async()) {
    const std::lock_guard lock(mutex_);
    shelf_.ReleaseDelayed();
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    streaming_ = false;
    credits_ = 0;
  }
  worker_->Add([this] {
    const std::lock_guard lock(mutex_);
    Announce(shelf_.ReleaseDelayed());
    if (traits_.drains) events_.Post(METransformDrainComplete, "DrainComplete");
  });
}

void Transform::Flush() {
  if (Async()) {
    const std::lock_guard lock(mutex_);
    streaming_ = false;
  }
  if (worker_) worker_->Clear();
  const std::lock_guard lock(mutex_);
  shelf_.Clear();
  announced_ = 0;
  credits_ = 0;
}

HRESULT Transform::Handle(MFT_MESSAGE_TYPE message, ULONG_PTR value) {
  switch (message) {
    case MFT_MESSAGE_SET_D3D_MANAGER:
      return SetManager(reinterpret_cast<IUnknown*>(value));
    case MFT_MESSAGE_NOTIFY_START_OF_STREAM:
      Start();
      return S_OK;
    case MFT_MESSAGE_COMMAND_DRAIN:
      Drain();
      return S_OK;
    case MFT_MESSAGE_COMMAND_FLUSH:
      Flush();
      return S_OK;
    default:
      return S_OK;
  }
}

HRESULT Transform::ProcessMessage(MFT_MESSAGE_TYPE message, ULONG_PTR value) {
  return Answer("ProcessMessage", [&](std::string& details) {
    const char* name = MessageName(message);
    details = name;
    if (const HRESULT ordered = gate_.CountOrdered(name); FAILED(ordered)) return ordered;
    return Handle(message, value);
  });
}

}  // namespace Veldrift::Transforms
