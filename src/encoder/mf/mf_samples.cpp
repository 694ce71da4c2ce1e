#include "encoder/mf/mf_samples.h"

#include <utility>

namespace Veldrift {

std::unique_ptr<MfSample> MfSample::InMemory(const MediaApi& media, size_t bytes, HRESULT& error) {
  if (bytes > MAXDWORD) {
    error = E_INVALIDARG;
    return nullptr;
  }
  ComPtr<IMFMediaBuffer> buffer;
  ComPtr<IMFSample> sample;
  error = media.createMemoryBuffer(static_cast<DWORD>(bytes), &buffer);
  if (SUCCEEDED(error)) error = media.createSample(&sample);
  if (SUCCEEDED(error)) error = sample->AddBuffer(buffer.Get());
  if (FAILED(error)) return nullptr;
  return std::make_unique<MfSample>(std::move(sample), std::move(buffer));
}

uint8_t* MfSample::Lock(int32_t& error) {
  BYTE* bytes = nullptr;
  error = buffer_ ? buffer_->Lock(&bytes, nullptr, nullptr) : E_NOTIMPL;
  if (FAILED(error)) return nullptr;
  if (bytes == nullptr) buffer_->Unlock();
  return bytes;
}

void MfSample::Unlock(size_t length) {
  buffer_->SetCurrentLength(static_cast<DWORD>(length));
  buffer_->Unlock();
}

void MfSample::SetTimes(int64_t time, int64_t duration) {
  sample_->SetSampleTime(time);
  sample_->SetSampleDuration(duration);
}

void MfSample::MarkKeyFrame() { sample_->SetUINT32(MFSampleExtension_CleanPoint, 1); }

void MfSample::ClearMark() { sample_->DeleteItem(MFSampleExtension_CleanPoint); }

LockedBuffer::LockedBuffer(ComPtr<IMFMediaBuffer> buffer) : buffer_(std::move(buffer)) {
  BYTE* bytes = nullptr;
  DWORD length = 0;
  locked_ = SUCCEEDED(buffer_->Lock(&bytes, nullptr, &length));
  if (locked_ && bytes != nullptr) bytes_ = ByteSpan(bytes, length);
}

LockedBuffer::~LockedBuffer() {
  if (locked_) buffer_->Unlock();
}

}  // namespace Veldrift
