// An encoder that does what a test tells it to, and remembers what it was told.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "encoder/hardware_encoder.h"
#include "platform/mutex.h"

namespace Veldrift {

// What the test sees and sets, shared by an encoder and all clones made from it, also after they
// are gone. Threads: any.
class EncoderScript {
 public:
  struct Behaviour {
    bool failConfigure = false;
    bool failClone = false;
    bool withholdOutput = false;  // frames go in and nothing comes out
    bool emitOnShutdown = false;
    size_t frameBytes = 64;             // of every access unit
    std::function<void()> insideClone;  // runs while Clone does
  };

  void Change(const std::function<void(Behaviour&)>& change);
  Behaviour Now() const;

  // Calls in their order, as "<encoder>.<call>": encoder 0 is the first, its clones count on.
  void Record(int encoder, const std::string& call);
  std::vector<std::string> Calls() const;
  size_t Count(const std::string& call) const;
  int NextNumber();

 private:
  mutable Mutex mutex_;
  Behaviour behaviour_ VD_GUARDED_BY(mutex_);
  std::vector<std::string> calls_ VD_GUARDED_BY(mutex_);
  int encoders_ VD_GUARDED_BY(mutex_) = 0;
};

// Its access units are Annex B of the scripted size whose first NAL unit says IDR or not, and whose
// last byte is the encoder's number. The first frame after Configure and every requested one are
// key frames, and all of them with a GOP size of 1. Threads: any, as the contract says.
class ScriptedEncoder final : public IHardwareEncoder {
 public:
  explicit ScriptedEncoder(std::shared_ptr<EncoderScript> script, EncoderSettings settings = {});

  bool Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) override;
  void Shutdown() override;
  bool Ready() override;
  int32_t GetWidth() override { return Settings().width; }
  int32_t GetHeight() override { return Settings().height; }
  int32_t GetFps() override { return Settings().fps; }
  std::string GetDescription() override;
  void EncodeFrame(const uint8_t* bgra, uint32_t width, uint32_t height, int32_t strideBytes,
                   int64_t timestampMicros) override;
  void RequestIdr() override;
  void SetBitrate(uint32_t bitsPerSecond) override;
  uint32_t GetBitrate() override { return Settings().bitrate; }
  void SetPeakBitrate(uint32_t bitsPerSecond) override;
  void SetGopSize(int32_t frames) override;
  int32_t GetGopSize() override { return Settings().gopSize; }
  void SetCodec(int32_t codec) override;
  int32_t GetCodec() override { return Settings().codec; }
  void SetRateControl(int32_t mode, float quality) override;
  int32_t GetRateControl() override { return Settings().rateControl; }
  void TriggerEmergencyCompression(int32_t frames) override;
  void SetFrameByteCap(uint32_t bytes) override;
  uint32_t GetFrameByteCap() override { return Settings().frameByteCap; }
  void SetOutputCallback(EncodedFrameCallback callback) override;
  std::unique_ptr<IHardwareEncoder> Clone(const EncoderSettings& settings) override;
  bool HasEmittedKeyframe() override;
  void RequestKeyframe() override { RequestIdr(); }
  void SetQualityMode(float quality) override;
  void SetHrdBufferBits(int64_t bufferBits, int64_t averageBits) override;

  // Output out of turn, as from a platform's worker.
  void EmitLate(bool keyFrame, uint64_t timestamp);

 private:
  EncoderSettings Settings();
  void Record(const std::string& call) { script_->Record(number_, call); }

  const std::shared_ptr<EncoderScript> script_;
  const int number_;
  Mutex mutex_;
  EncoderSettings settings_ VD_GUARDED_BY(mutex_);
  bool configured_ VD_GUARDED_BY(mutex_);
  bool keyRequested_ VD_GUARDED_BY(mutex_) = true;
  bool keyEmitted_ VD_GUARDED_BY(mutex_) = false;
  EncodedFrameCallback callback_ VD_GUARDED_BY(mutex_);
};

}  // namespace Veldrift
