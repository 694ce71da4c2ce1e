// An encoder that records what it is asked and answers each frame with a few bytes.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "encoder/hardware_encoder.h"
#include "platform/mutex.h"

namespace Veldrift {

// What an encoder saw; outlives it. Threads: any.
struct EncoderRecord {
  struct Frame {
    uint32_t width, height;
    int32_t stride;
    int64_t timestamp;
  };

  mutable Mutex mutex;
  std::vector<EncoderSettings> configured VD_GUARDED_BY(mutex);
  std::vector<Frame> frames VD_GUARDED_BY(mutex);
  int idrRequests VD_GUARDED_BY(mutex) = 0;
  int emergencyFrames VD_GUARDED_BY(mutex) = 0;
  EncoderSettings settings VD_GUARDED_BY(mutex);
  std::string description VD_GUARDED_BY(mutex) = "recording encoder";
  bool failConfigure VD_GUARDED_BY(mutex) = false;
  bool silent VD_GUARDED_BY(mutex) = false;  // takes frames and gives nothing back
  size_t outputBytes VD_GUARDED_BY(mutex) = 100;

  template <typename Body>
  auto With(Body&& body) {
    MutexLock lock(mutex);
    return body(*this);
  }
  size_t FrameCount() const {
    MutexLock lock(mutex);
    return frames.size();
  }
  size_t ConfigureCount() const {
    MutexLock lock(mutex);
    return configured.size();
  }
};

class RecordingEncoder final : public IHardwareEncoder {
 public:
  explicit RecordingEncoder(std::shared_ptr<EncoderRecord> record) : record_(std::move(record)) {}

  bool Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) override {
    MutexLock lock(record_->mutex);
    EncoderSettings& settings = record_->settings;
    settings.width = record_->failConfigure ? 0 : int32_t(width);
    settings.height = int32_t(height);
    settings.bitrate = bitrate;
    settings.fps = int32_t(fps);
    record_->configured.push_back(settings);
    return !record_->failConfigure;
  }
  void Shutdown() override {
    MutexLock lock(record_->mutex);
    record_->settings.width = 0;
  }
  bool Ready() override { return Settings().width != 0; }
  int32_t GetWidth() override { return Settings().width; }
  int32_t GetHeight() override { return Settings().height; }
  int32_t GetFps() override { return Settings().fps; }
  std::string GetDescription() override {
    MutexLock lock(record_->mutex);
    return record_->settings.width != 0 ? record_->description : std::string();
  }
  void EncodeFrame(const uint8_t*, uint32_t width, uint32_t height, int32_t stride,
                   int64_t timestamp) override {
    std::vector<uint8_t> output;
    {
      MutexLock lock(record_->mutex);
      record_->frames.push_back({width, height, stride, timestamp});
      if (!record_->silent) output.resize(record_->outputBytes, 0x42);
    }
    MutexLock lock(callbackMutex_);
    if (callback_ && !output.empty()) {
      callback_(output.data(), output.size(), true, uint64_t(timestamp));
    }
  }
  void RequestIdr() override {
    MutexLock lock(record_->mutex);
    ++record_->idrRequests;
  }
  void SetBitrate(uint32_t) override {}
  uint32_t GetBitrate() override { return Settings().bitrate; }
  void SetPeakBitrate(uint32_t) override {}
  void SetGopSize(int32_t frames) override { Change(&EncoderSettings::gopSize, frames); }
  int32_t GetGopSize() override { return Settings().gopSize; }
  void SetCodec(int32_t codec) override { Change(&EncoderSettings::codec, codec); }
  int32_t GetCodec() override { return Settings().codec; }
  void SetRateControl(int32_t mode, float quality) override {
    Change(&EncoderSettings::rateControl, mode);
    Change(&EncoderSettings::quality, quality);
  }
  int32_t GetRateControl() override { return Settings().rateControl; }
  void TriggerEmergencyCompression(int32_t frames) override {
    MutexLock lock(record_->mutex);
    record_->emergencyFrames = frames;
  }
  void SetFrameByteCap(uint32_t bytes) override { Change(&EncoderSettings::frameByteCap, bytes); }
  uint32_t GetFrameByteCap() override { return Settings().frameByteCap; }
  void SetOutputCallback(EncodedFrameCallback callback) override {
    MutexLock lock(callbackMutex_);
    callback_ = std::move(callback);
  }
  std::unique_ptr<IHardwareEncoder> Clone(const EncoderSettings&) override { return nullptr; }
  bool HasEmittedKeyframe() override { return true; }
  void RequestKeyframe() override { RequestIdr(); }
  void SetQualityMode(float) override {}
  void SetHrdBufferBits(int64_t, int64_t) override {}

 private:
  EncoderSettings Settings() const {
    MutexLock lock(record_->mutex);
    return record_->settings;
  }
  template <typename Field, typename Value>
  void Change(Field EncoderSettings::*field, Value value) {
    MutexLock lock(record_->mutex);
    record_->settings.*field = value;
  }

  const std::shared_ptr<EncoderRecord> record_;
  Mutex callbackMutex_;
  EncodedFrameCallback callback_ VD_GUARDED_BY(callbackMutex_);
};

}  // namespace Veldrift
