// The encoder of systems without Media Foundation: libavcodec's software codecs behind the
// encoder contract.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "encoder/av/av_codec_session.h"
#include "encoder/hardware_encoder.h"
#include "encoder/key_frame_placer.h"
#include "encoder/rate_control_state.h"
#include "platform/mutex.h"

namespace Veldrift {

// A size with an odd side is encoded without its last row or column, since 4:2:0 has none for it;
// GetWidth and GetHeight answer what was configured. Output carries the timestamp that the frame
// came with.
//
// The frame byte cap ends the rate control's buffer, so that frames are about that large at most;
// at 30 frames/s the usual cap ends the rate at 81.6 Mbit/s. A new cap counts when the codec is
// opened the next time. The quality mode knows no ceiling.
//
// H.264 takes new rates and a new quality while it runs. HEVC is opened anew at the next frame,
// which then is a key frame; so it is at both ends of an emergency.
//
// Threads: as the contract says. The callback runs on the thread of EncodeFrame, under frameMutex_
// alone: a setter never waits for it, so that a caller may hold a lock across a setter that its
// callback takes.
class AvEncoder final : public IHardwareEncoder {
 public:
  explicit AvEncoder(const std::string& engineId = {});
  ~AvEncoder() override;

  bool Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) override;
  void Shutdown() override;
  bool Ready() override { return ready_; }
  int32_t GetWidth() override { return width_; }
  int32_t GetHeight() override { return height_; }
  int32_t GetFps() override { return fps_; }
  std::string GetDescription() override;
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
  bool HasEmittedKeyframe() override { return firstKeyEmitted_; }
  void RequestKeyframe() override { RequestIdr(); }
  void SetQualityMode(float quality) override;
  void SetHrdBufferBits(int64_t bufferBits, int64_t averageBits) override;

  // Calls the output callback as a frame's output would: for the test that races it against
  // SetOutputCallback.
  void Emit(const EncodedUnit& unit);

 private:
  bool ConfigureLocked(int32_t width, int32_t height, uint32_t bitrate, int32_t fps)
      VD_REQUIRES(encoderMutex_);
  bool OpenSession(bool emergency) VD_REQUIRES(encoderMutex_);
  void RebuildLocked() VD_REQUIRES(encoderMutex_);
  void TearDown() VD_REQUIRES(encoderMutex_);
  void ApplyRates() VD_REQUIRES(encoderMutex_);
  void SetDescription(const std::string& text);
  bool EncodeLocked(const uint8_t* bgra, int32_t width, int32_t height, int32_t strideBytes,
                    int64_t timestampMicros) VD_REQUIRES(frameMutex_, encoderMutex_);

  // Orders frames and their output. Before encoderMutex_.
  Mutex frameMutex_ VD_ACQUIRED_BEFORE(encoderMutex_);
  // The codec and the settings. The atomic ones are written under it and read without.
  Mutex encoderMutex_;

  EncodedUnit unit_ VD_GUARDED_BY(frameMutex_);
  std::vector<uint8_t> scaled_ VD_GUARDED_BY(frameMutex_);

  const std::string engineId_;
  std::unique_ptr<AvCodecSession> session_ VD_GUARDED_BY(encoderMutex_);
  bool reopen_ VD_GUARDED_BY(encoderMutex_) = false;
  CodecRates rates_ VD_GUARDED_BY(encoderMutex_);
  float quality_ VD_GUARDED_BY(encoderMutex_) = 0.75F;
  std::atomic<bool> ready_{false};
  std::atomic<int32_t> width_{0};
  std::atomic<int32_t> height_{0};
  std::atomic<int32_t> fps_{30};
  std::atomic<int32_t> gopSize_{1};
  std::atomic<int32_t> codec_{kCodecHevc};
  std::atomic<int32_t> rateControl_{kRateControlBitrate};
  std::atomic<uint32_t> bitrate_{0};
  std::atomic<uint32_t> peakBitrate_{0};
  std::atomic<uint32_t> frameByteCap_{kDefaultFrameByteCap};
  std::atomic<bool> firstKeyEmitted_{false};
  KeyFramePlacer keyFrames_;
  EmergencyCount emergency_;

  Mutex descriptionMutex_;
  std::string description_ VD_GUARDED_BY(descriptionMutex_);

  Mutex callbackMutex_;
  EncodedFrameCallback outputCallback_ VD_GUARDED_BY(callbackMutex_);
};

}  // namespace Veldrift
