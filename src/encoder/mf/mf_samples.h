// Media samples that frames go in by.
#pragma once

#include <cstdint>
#include <memory>

#include "encoder/encoder_transform.h"
#include "encoder/mf/com_scope.h"
#include "encoder/mf/mf_libraries.h"

namespace Veldrift {

// A sample in memory, or one of the graphics device's, which has none to lock.
class MfSample final : public TransformSample {
 public:
  // With a buffer of `bytes` bytes. Null, with the error, if that can't be had.
  static std::unique_ptr<MfSample> InMemory(const MediaApi& media, size_t bytes, HRESULT& error);

  explicit MfSample(ComPtr<IMFSample> sample, ComPtr<IMFMediaBuffer> buffer = nullptr)
      : sample_(std::move(sample)), buffer_(std::move(buffer)) {}

  uint8_t* Lock(int32_t& error) override;
  void Unlock(size_t length) override;
  void SetTimes(int64_t time, int64_t duration) override;
  void MarkKeyFrame() override;
  void ClearMark() override;

  IMFSample* Get() const { return sample_.Get(); }

 private:
  const ComPtr<IMFSample> sample_;
  const ComPtr<IMFMediaBuffer> buffer_;
};

// A buffer's bytes for a scope.
class LockedBuffer {
 public:
  explicit LockedBuffer(ComPtr<IMFMediaBuffer> buffer);
  ~LockedBuffer();
  LockedBuffer(const LockedBuffer&) = delete;
  LockedBuffer& operator=(const LockedBuffer&) = delete;

  // Empty if the buffer couldn't be locked.
  ByteSpan Bytes() const { return bytes_; }

 private:
  const ComPtr<IMFMediaBuffer> buffer_;
  bool locked_ = false;
  ByteSpan bytes_;
};

}  // namespace Veldrift
