// The encoder: everything that the contract asks for and that no codec decides.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "encoder/encoder_backend.h"
#include "encoder/encoder_description.h"
#include "encoder/frame_input.h"
#include "encoder/hardware_encoder.h"
#include "encoder/key_frame_placer.h"
#include "encoder/output_port.h"
#include "encoder/rate_control_state.h"
#include "platform/mutex.h"

namespace Veldrift {

// Checks, clamps and keeps the settings, opens the backend anew when one of them needs it, scales
// frames, decides which are key frames and which are compressed in an emergency, and says what it
// is. The backend only opens and encodes.
//
// Threads: as the contract says. Output goes through the port, behind encoderMutex_: nothing here
// calls the callback under a lock, and only EncodeFrame, Shutdown and the destructor call it at
// all.
class EncoderShell final : public IHardwareEncoder {
 public:
  // `makeBackend` makes this encoder's backend and those of its clones. `engineId` as
  // NormaliseEngineId leaves it.
  EncoderShell(BackendFactory makeBackend, std::string engineId);
  ~EncoderShell() override;

  bool Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) override;
  void Shutdown() override;
  bool Ready() override { return ready_; }
  int32_t GetWidth() override { return width_; }
  int32_t GetHeight() override { return height_; }
  int32_t GetFps() override { return fps_; }
  std::string GetDescription() override { return description_.Text(); }
  void EncodeFrame(const uint8_t* bgra, uint32_t width, uint32_t height, int32_t strideBytes,
                   int64_t timestampMicros) override;
  void RequestIdr() override { keyFrames_.Request(); }
  void SetBitrate(uint32_t bitsPerSecond) override;
  uint32_t GetBitrate() override { return bitrate_; }
  void SetPeakBitrate(uint32_t bitsPerSecond) override;
  void SetGopSize(int32_t frames) override;
  int32_t GetGopSize() override { return gopSize_; }
  void SetCodec(int32_t codec) override;
  int32_t GetCodec() override { return codec_; }
  void SetRateControl(int32_t mode, float quality) override;
  int32_t GetRateControl() override { return rateControl_; }
  void TriggerEmergencyCompression(int32_t frames) override;
  void SetFrameByteCap(uint32_t bytes) override { frameByteCap_ = ClampFrameByteCap(bytes); }
  uint32_t GetFrameByteCap() override { return frameByteCap_; }
  void SetOutputCallback(EncodedFrameCallback callback) override;
  std::unique_ptr<IHardwareEncoder> Clone(const EncoderSettings& settings) override;
  bool HasEmittedKeyframe() override { return port_->KeyFrameOut(); }
  void RequestKeyframe() override { RequestIdr(); }
  void SetQualityMode(float quality) override;
  void SetHrdBufferBits(int64_t bufferBits, int64_t averageBits) override;

 private:
  void Adopt(const EncoderSettings& settings);
  bool Build(int32_t width, int32_t height, uint32_t bitrate, int32_t fps)
      VD_REQUIRES(encoderMutex_);
  bool OpenBackend() VD_REQUIRES(encoderMutex_);
  void Rebuild() VD_REQUIRES(encoderMutex_);
  void TearDown() VD_REQUIRES(encoderMutex_);
  EncoderPlan Plan() VD_REQUIRES(encoderMutex_);
  void Encode(const BgraPicture& frame, int64_t timestampMicros) VD_REQUIRES(encoderMutex_);
  EncoderBackend::Intake TakeIn(bool emergency) VD_REQUIRES(encoderMutex_);
  void Submit(const FrameOrder& order) VD_REQUIRES(encoderMutex_);
  bool TakesChanges() VD_REQUIRES(encoderMutex_) { return ready_ && backend_->TakesChanges(); }

  const BackendFactory makeBackend_;
  const std::string engineId_;
  const std::shared_ptr<OutputPort> port_ = std::make_shared<OutputPort>();

  // The codec and the settings. The atomic ones are written under it and read without. Before the
  // port's mutex and the description's.
  Mutex encoderMutex_;
  const std::unique_ptr<EncoderBackend> backend_;  // used under encoderMutex_
  FrameInput input_ VD_GUARDED_BY(encoderMutex_);
  float quality_ VD_GUARDED_BY(encoderMutex_) = 0.75F;
  uint32_t peakBitrate_ VD_GUARDED_BY(encoderMutex_) = 0;
  std::atomic<bool> ready_{false};
  std::atomic<int32_t> width_{0};
  std::atomic<int32_t> height_{0};
  std::atomic<int32_t> fps_{30};
  std::atomic<int32_t> gopSize_{1};
  std::atomic<int32_t> codec_{kCodecHevc};
  std::atomic<int32_t> rateControl_{kRateControlBitrate};
  std::atomic<uint32_t> bitrate_{0};
  std::atomic<uint32_t> frameByteCap_{kDefaultFrameByteCap};
  KeyFramePlacer keyFrames_;
  EmergencyCount emergency_;
  EncoderDescription description_;
};

}  // namespace Veldrift
