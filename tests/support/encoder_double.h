// The whole encoder contract over a settings record, with nothing behind it: a double overrides the
// few operations that it is about.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "encoder/hardware_encoder.h"
#include "platform/mutex.h"

namespace Veldrift {

// Threads: any, as the contract says.
class EncoderDouble : public IHardwareEncoder {
 public:
  bool Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) override {
    MutexLock lock(mutex_);
    settings_.width = int32_t(width);
    settings_.height = int32_t(height);
    settings_.bitrate = bitrate;
    settings_.fps = int32_t(fps);
    return true;
  }
  void Shutdown() override { Change(&EncoderSettings::width, 0); }
  bool Ready() override { return Settings().width != 0; }
  int32_t GetWidth() override { return Settings().width; }
  int32_t GetHeight() override { return Settings().height; }
  int32_t GetFps() override { return Settings().fps; }
  std::string GetDescription() override { return Ready() ? "double" : ""; }
  void RequestIdr() override {}
  void SetBitrate(uint32_t bitsPerSecond) override {
    Change(&EncoderSettings::bitrate, bitsPerSecond);
  }
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
  void TriggerEmergencyCompression(int32_t) override {}
  void SetFrameByteCap(uint32_t bytes) override { Change(&EncoderSettings::frameByteCap, bytes); }
  uint32_t GetFrameByteCap() override { return Settings().frameByteCap; }
  void SetOutputCallback(EncodedFrameCallback callback) override {
    MutexLock lock(mutex_);
    callback_ = std::move(callback);
  }
  std::unique_ptr<IHardwareEncoder> Clone(const EncoderSettings&) override { return nullptr; }
  bool HasEmittedKeyframe() override { return true; }
  void RequestKeyframe() override { RequestIdr(); }
  void SetQualityMode(float) override {}
  void SetHrdBufferBits(int64_t, int64_t) override {}

  EncoderSettings Settings() const {
    MutexLock lock(mutex_);
    return settings_;
  }

 protected:
  // Calls the callback, with no lock held.
  void Emit(const uint8_t* data, size_t size, uint64_t timestamp) {
    EncodedFrameCallback callback;
    {
      MutexLock lock(mutex_);
      callback = callback_;
    }
    if (callback) callback(data, size, true, timestamp);
  }

 private:
  template <typename Field, typename Value>
  void Change(Field EncoderSettings::*field, Value value) {
    MutexLock lock(mutex_);
    settings_.*field = value;
  }

  mutable Mutex mutex_;
  EncoderSettings settings_ VD_GUARDED_BY(mutex_);
  EncodedFrameCallback callback_ VD_GUARDED_BY(mutex_);
};

}  // namespace Veldrift
