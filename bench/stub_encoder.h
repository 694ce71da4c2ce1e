// An encoder that costs nothing: it answers every frame with the same access unit, at once.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "encoder/hardware_encoder.h"

namespace Veldrift {

class StubEncoder final : public IHardwareEncoder {
 public:
  explicit StubEncoder(size_t accessUnitBytes = 1) : accessUnit_(accessUnitBytes, 0x42) {}

  bool Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) override {
    settings_.width = int32_t(width);
    settings_.height = int32_t(height);
    settings_.bitrate = bitrate;
    settings_.fps = int32_t(fps);
    return true;
  }
  void Shutdown() override { settings_.width = 0; }
  bool Ready() override { return settings_.width != 0; }
  int32_t GetWidth() override { return settings_.width; }
  int32_t GetHeight() override { return settings_.height; }
  int32_t GetFps() override { return settings_.fps; }
  std::string GetDescription() override { return "stub"; }
  void EncodeFrame(const uint8_t*, uint32_t, uint32_t, int32_t, int64_t timestamp) override {
    if (callback_) callback_(accessUnit_.data(), accessUnit_.size(), true, uint64_t(timestamp));
  }
  void RequestIdr() override {}
  void SetBitrate(uint32_t) override {}
  uint32_t GetBitrate() override { return settings_.bitrate; }
  void SetPeakBitrate(uint32_t) override {}
  void SetGopSize(int32_t) override {}
  int32_t GetGopSize() override { return 1; }
  void SetCodec(int32_t) override {}
  int32_t GetCodec() override { return kCodecH264; }
  void SetRateControl(int32_t, float) override {}
  int32_t GetRateControl() override { return kRateControlBitrate; }
  void TriggerEmergencyCompression(int32_t) override {}
  void SetFrameByteCap(uint32_t) override {}
  uint32_t GetFrameByteCap() override { return kDefaultFrameByteCap; }
  void SetOutputCallback(EncodedFrameCallback callback) override {
    callback_ = std::move(callback);
  }
  std::unique_ptr<IHardwareEncoder> Clone(const EncoderSettings&) override { return nullptr; }
  bool HasEmittedKeyframe() override { return true; }
  void RequestKeyframe() override {}
  void SetQualityMode(float) override {}
  void SetHrdBufferBits(int64_t, int64_t) override {}

 private:
  const std::vector<uint8_t> accessUnit_;
  EncoderSettings settings_;
  EncodedFrameCallback callback_;
};

}  // namespace Veldrift
