// The whole encoder contract over a settings record, with nothing behind it: a double overrides the
// few operations that it is about.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include "encoder/hardware_encoder.h"
#include "encoder/output_port.h"
#include "platform/mutex.h"

namespace Veldrift {

// Output goes through a port, as that of real encoders does. Threads: any, as the contract says.
class EncoderDouble : public IHardwareEncoder {
 public:
  EncoderDouble() { port_->Open(); }
  ~EncoderDouble() override { EndOutput(); }

  bool Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) override {
    port_->Open();
    WantKeyFrame();
    return Change("Configure " + std::to_string(width) + "x" + std::to_string(height) + " " +
                      std::to_string(bitrate) + " " + std::to_string(fps),
                  [&](EncoderSettings& settings) {
                    settings.width = int32_t(width);
                    settings.height = int32_t(height);
                    settings.bitrate = bitrate;
                    settings.fps = int32_t(fps);
                  });
  }
  void Shutdown() override {
    Change("Shutdown", [](EncoderSettings& settings) { settings.width = settings.height = 0; });
    EndOutput();
  }
  bool Ready() override { return Settings().width != 0; }
  int32_t GetWidth() override { return Settings().width; }
  int32_t GetHeight() override { return Settings().height; }
  int32_t GetFps() override { return Settings().fps; }
  std::string GetDescription() override { return Ready() ? "double" : ""; }
  void RequestIdr() override {
    WantKeyFrame();
    OnCall("RequestIdr");
  }
  void SetBitrate(uint32_t bitsPerSecond) override {
    if (bitsPerSecond == 0) return;
    Change("SetBitrate " + std::to_string(bitsPerSecond),
           [&](EncoderSettings& settings) { settings.bitrate = bitsPerSecond; });
  }
  uint32_t GetBitrate() override { return Settings().bitrate; }
  void SetPeakBitrate(uint32_t bitsPerSecond) override {
    Change("SetPeakBitrate " + std::to_string(bitsPerSecond),
           [&](EncoderSettings& settings) { settings.peakBitrate = bitsPerSecond; });
  }
  void SetGopSize(int32_t frames) override {
    Change("SetGopSize " + std::to_string(frames),
           [&](EncoderSettings& settings) { settings.gopSize = std::max(frames, 1); });
  }
  int32_t GetGopSize() override { return Settings().gopSize; }
  void SetCodec(int32_t codec) override {
    Change("SetCodec " + std::to_string(codec),
           [&](EncoderSettings& settings) { settings.codec = codec; });
  }
  int32_t GetCodec() override { return Settings().codec; }
  void SetRateControl(int32_t mode, float quality) override {
    Change("SetRateControl " + std::to_string(mode), [&](EncoderSettings& settings) {
      settings.rateControl = mode;
      settings.quality = quality;
    });
  }
  int32_t GetRateControl() override { return Settings().rateControl; }
  void TriggerEmergencyCompression(int32_t frames) override {
    if (frames > 0) WantKeyFrame();
    OnCall("TriggerEmergencyCompression " + std::to_string(frames));
  }
  void SetFrameByteCap(uint32_t bytes) override {
    Change("SetFrameByteCap " + std::to_string(bytes),
           [&](EncoderSettings& settings) { settings.frameByteCap = bytes; });
  }
  uint32_t GetFrameByteCap() override { return Settings().frameByteCap; }
  void SetOutputCallback(EncodedFrameCallback callback) override {
    port_->SetCallback(std::move(callback));
  }
  std::unique_ptr<IHardwareEncoder> Clone(const EncoderSettings&) override { return nullptr; }
  bool HasEmittedKeyframe() override { return port_->KeyFrameOut(); }
  void RequestKeyframe() override { RequestIdr(); }
  void SetQualityMode(float) override { OnCall("SetQualityMode"); }
  void SetHrdBufferBits(int64_t, int64_t) override { OnCall("SetHrdBufferBits"); }

  EncoderSettings Settings() const {
    MutexLock lock(mutex_);
    return settings_;
  }

 protected:
  explicit EncoderDouble(const EncoderSettings& settings) : EncoderDouble() {
    settings_ = settings;
    settings_.gopSize = std::max(settings.gopSize, 1);
  }

  // After every call that changes or asks for something, with no lock held.
  virtual void OnCall(const std::string& call) { static_cast<void>(call); }

  // The next frame is to be a key frame.
  virtual void WantKeyFrame() {}

  // Puts a unit out, with no lock held.
  void Emit(const uint8_t* data, size_t size, uint64_t timestamp, bool keyFrame = true) {
    EncodedUnit unit = port_->Blank();
    unit.data.assign(data, data + size);
    unit.keyFrame = keyFrame;
    unit.timestamp = timestamp;
    port_->Post(std::move(unit));
    port_->Emit();
  }

 private:
  template <typename Body>
  bool Change(const std::string& call, Body&& body) {
    {
      MutexLock lock(mutex_);
      body(settings_);
    }
    OnCall(call);
    return true;
  }
  void EndOutput() {
    port_->Seal();
    port_->Drain();
  }

  const std::shared_ptr<OutputPort> port_ = std::make_shared<OutputPort>();
  mutable Mutex mutex_;
  EncoderSettings settings_ VD_GUARDED_BY(mutex_);
};

}  // namespace Veldrift
