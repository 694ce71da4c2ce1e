// The encoder contract: everything above sees video encoders only through IHardwareEncoder.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace Veldrift {

// Codec ids. Any value other than 1 counts as HEVC.
inline constexpr int32_t kCodecHevc = 0;
inline constexpr int32_t kCodecH264 = 1;

// Rate control modes: constant bit rate; constant quality (`quality` decides); peak-constrained
// variable bit rate (`peakBitrate` decides the ceiling).
inline constexpr int32_t kRateControlBitrate = 0;
inline constexpr int32_t kRateControlQuality = 1;
inline constexpr int32_t kRateControlVbr = 2;

inline constexpr uint32_t kDefaultFrameByteCap = 340'000;

// What an encoder is to become.
struct EncoderSettings {
  int32_t width = 0;
  int32_t height = 0;
  int32_t fps = 30;
  uint32_t bitrate = 0;      // mean, bits per second
  uint32_t peakBitrate = 0;  // ceiling for VBR, bits per second; 0 is not set
  int32_t gopSize = 1;       // frames from one key frame to the next; 1 is all-intra
  int32_t codec = kCodecHevc;
  int32_t rateControl = kRateControlBitrate;
  float quality = 0.75F;                         // 0 to 1, for the quality mode
  uint32_t frameByteCap = kDefaultFrameByteCap;  // stored and reported; 0 means the default
};

// One access unit in Annex B, valid only during the call; `keyFrame` for an IDR or IRAP picture;
// `timestamp` in microseconds. An empty callback drops the output.
using EncodedFrameCallback =
    std::function<void(const uint8_t* data, uint64_t size, bool keyFrame, uint64_t timestamp)>;

// A video encoder. Real: EncoderShell over a backend of encoder/av/ (libavcodec) or encoder/mf/
// (Media Foundation). Doubles: the pipeline's own MockEncoder, tests/support/. What stands here is
// what tests/support/encoder_contract.h asks of all of them.
//
// Threads: any operation may come from any thread, and an implementation serialises them itself.
// The getters never block on the encoder's own work.
//
// Output: in the order of the frames, one call at a time, each with the time that its frame came
// with. A call can run on the thread of EncodeFrame, of Shutdown, of the destructor or of a
// platform's worker, never under a lock of the encoder's and never inside Configure or a setter.
// The first frame after Configure is a key frame, every key frame has the parameter sets in front,
// and a frame that fails leaves its key frame to the next one.
//
// Waiting, so that nobody waits for somebody who waits for him:
// - A callback may wait for a lock under which somebody else calls Configure, Clone, a getter or a
//   setter: these never wait for a running callback.
// - Shutdown and the destructor return only when no callback runs or will run; frames of other
//   threads that come meanwhile give nothing. A caller holds no lock across EncodeFrame and these
//   two that the callback takes.
// - From inside the callback come only getters, SetOutputCallback, RequestIdr, RequestKeyframe and
//   TriggerEmergencyCompression; not EncodeFrame, not what rebuilds, and never Shutdown or the
//   destructor, which would wait for themselves.
class IHardwareEncoder {
 public:
  virtual ~IHardwareEncoder() = default;

  // Builds the encoder anew for these values (pixels, bits per second, frames per second),
  // replacing what was there. False leaves it not Ready; it may be called again. A rate of 0 is the
  // default one.
  virtual bool Configure(uint32_t width, uint32_t height, uint32_t bitrate, uint32_t fps) = 0;
  // Releases the encoder, perhaps with output through the callback. It can be configured again.
  virtual void Shutdown() = 0;
  virtual bool Ready() = 0;
  virtual int32_t GetWidth() = 0;
  virtual int32_t GetHeight() = 0;
  virtual int32_t GetFps() = 0;
  // One line that names the active encoder, empty when unconfigured.
  virtual std::string GetDescription() = 0;
  // Takes one BGRA frame; rows are `strideBytes` apart. A frame of another size than the configured
  // one is scaled. Output comes through the callback. Nothing happens with an encoder that isn't
  // Ready, without pixels, without a size or with rows shorter than their pixels.
  virtual void EncodeFrame(const uint8_t* bgra, uint32_t width, uint32_t height,
                           int32_t strideBytes, int64_t timestampMicros) = 0;
  // The next frame is to be a key frame.
  virtual void RequestIdr() = 0;
  virtual void SetBitrate(uint32_t bitsPerSecond) = 0;  // live; 0 is ignored
  virtual uint32_t GetBitrate() = 0;
  virtual void SetPeakBitrate(uint32_t bitsPerSecond) = 0;  // live, in VBR only; 0 is ignored
  virtual void SetGopSize(int32_t frames) = 0;              // rebuilds; below 1 is stored as 1
  virtual int32_t GetGopSize() = 0;
  virtual void SetCodec(int32_t codec) = 0;  // rebuilds
  virtual int32_t GetCodec() = 0;
  virtual void SetRateControl(int32_t mode, float quality) = 0;  // rebuilds
  virtual int32_t GetRateControl() = 0;
  // The next `frames` frames at the worst quality, from a key frame on: something was too large
  // for the wire. Takes no lock: it may come from inside the output callback.
  virtual void TriggerEmergencyCompression(int32_t frames) = 0;
  virtual void SetFrameByteCap(uint32_t bytes) = 0;
  virtual uint32_t GetFrameByteCap() = 0;
  // A callback that is running on another thread finishes on its own copy.
  virtual void SetOutputCallback(EncodedFrameCallback callback) = 0;
  // A new encoder of the same kind, configured for `settings`, with no frame seen and no callback;
  // null on failure.
  virtual std::unique_ptr<IHardwareEncoder> Clone(const EncoderSettings& settings) = 0;
  // A key frame has come out since the last Configure: a swap may happen.
  virtual bool HasEmittedKeyframe() = 0;
  virtual void RequestKeyframe() = 0;  // as RequestIdr
  // Live in the quality mode, else at the next rebuild.
  virtual void SetQualityMode(float quality) = 0;
  // Live: the mean rate and the ceiling of a decoder's buffer; both above 0, else ignored.
  // GetBitrate answers as before.
  virtual void SetHrdBufferBits(int64_t bufferBits, int64_t averageBits) = 0;
};

}  // namespace Veldrift
