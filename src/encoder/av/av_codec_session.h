// One opened codec of libavcodec: a frame in, an access unit out.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "encoder/annex_b.h"
#include "encoder/av/av_handles.h"
#include "encoder/av/codec_log.h"
#include "encoder/hardware_encoder.h"

namespace Veldrift {

// Bits per second in force, which differ from the stored ones after a live change.
struct CodecRates {
  uint32_t mean = 0;
  uint32_t max = 0;
};

struct CodecConfig {
  int32_t codec = 0;
  int32_t width = 0;  // even, as 4:2:0 needs it
  int32_t height = 0;
  int32_t fps = 30;
  int32_t rateControl = 0;
  float quality = 0.75F;
  CodecRates rates;
  uint32_t frameByteCap = kDefaultFrameByteCap;
  bool emergency = false;  // at the worst quantiser, for a codec that can't change to it
};

// How one frame is to be encoded.
struct FrameOrder {
  uint64_t timestamp = 0;  // comes back with the access unit
  bool keyFrame = false;
};

struct EncodedUnit {
  std::vector<uint8_t> data;  // Annex B
  bool keyFrame = false;
  uint64_t timestamp = 0;
};

// The constant rate factor for a quality of 0 to 1: 45 for 0, 18.75 for the default of 0.75, 10
// for 1.
float RateFactorOf(float quality);

// libx264 or libx265, set up to give each frame back at once: no B frames, no look-ahead, no frame
// threads. Every key frame is an IDR picture that was ordered and has its parameter sets in front.
// The colour is signalled as BT.709, limited range.
//
// Threads: one at a time, under the encoder's lock.
class AvCodecSession {
 public:
  ~AvCodecSession();

  // Null on failure, which is logged.
  static std::unique_ptr<AvCodecSession> Open(const CodecConfig& config);

  // Encodes the frame's first width x height pixels (rows `strideBytes` apart) and puts the access
  // unit that came out into `unit`, reusing its memory. False if none came out.
  bool Encode(const uint8_t* bgra, ptrdiff_t strideBytes, const FrameOrder& order,
              EncodedUnit& unit);

  // Changes that reach the running codec with the next frame. False if this codec can't, and has
  // to be opened anew.
  bool SetRates(const CodecRates& rates);
  bool SetQuality(float quality);
  // From the next frame on at the worst quantiser, or no more.
  bool SetEmergency(bool emergency);

  const CodecConfig& Config() const { return config_; }
  const char* Name() const { return context_->codec->name; }

 private:
  AvCodecSession(const CodecConfig& config, AvContextPtr context);

  bool OpenCodec();
  bool PrepareFrame();
  void Convert(const uint8_t* bgra, ptrdiff_t strideBytes);
  bool ApplyOrder(const FrameOrder& order);
  bool Send();
  bool Receive(EncodedUnit& unit);
  void Assemble(ByteSpan packet, bool marked, EncodedUnit& unit);

  const CodecConfig config_;
  AvContextPtr context_;
  CodecLogScope log_;
  AvFramePtr frame_;
  AvPacketPtr packet_;
  std::vector<uint8_t> chroma_;  // interleaved, for a codec that wants its planes apart
  std::vector<uint8_t> parameterSets_;
  bool emergency_ = false;
  int64_t framesSent_ = 0;
  std::array<uint64_t, 16>
      timestamps_{};  // by a frame's number, should a codec ever hold some back
};

}  // namespace Veldrift
