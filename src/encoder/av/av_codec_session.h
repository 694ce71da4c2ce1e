// One opened codec of libavcodec: a frame in, an access unit out.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "encoder/av/av_handles.h"
#include "encoder/av/codec_log.h"
#include "encoder/encoder_backend.h"
#include "encoder/frame_input.h"
#include "encoder/frame_times.h"
#include "encoder/hardware_encoder.h"
#include "encoder/output_port.h"
#include "encoder/unit_assembler.h"

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

// The constant rate factor for a quality of 0 to 1: 45 for 0, 18.75 for the default of 0.75, 10
// for 1.
float RateFactorOf(float quality);

// libx264 or libx265, set up to give each frame back at once: no B frames, no look-ahead, no frame
// threads. Should a codec hold a frame back all the same, its unit comes with a later one and keeps
// its time. Every key frame is an IDR picture that was ordered and has its parameter sets in front.
// The colour is signalled as BT.709, limited range.
//
// Threads: one at a time, under the encoder's lock.
class AvCodecSession {
 public:
  ~AvCodecSession();

  // Null on failure, which is logged.
  static std::unique_ptr<AvCodecSession> Open(const CodecConfig& config);

  // Converts the frame's first width x height pixels. False without memory for it.
  bool TakeIn(FrameInput& frame);
  // Encodes the frame that was taken in, and posts what has come out. False if it is lost.
  bool Encode(const FrameOrder& order, OutputPort& port);

  // Changes that reach the running codec with the next frame. False if this codec can't, and has
  // to be opened anew.
  bool SetRates(const CodecRates& rates);
  bool SetQuality(float quality);
  // From the next frame on at the worst quantiser, or no more.
  bool SetEmergency(bool emergency);

  const char* Name() const { return context_->codec->name; }
  // The mean rate in force, in bits per second: the one asked for, or where the frame byte cap ends
  // it.
  uint32_t MeanRate() const;

 private:
  AvCodecSession(const CodecConfig& config, AvContextPtr context);

  bool OpenCodec();
  bool PrepareFrame();
  bool ApplyOrder(const FrameOrder& order);
  bool Send();
  bool Receive(OutputPort& port);

  const CodecConfig config_;
  AvContextPtr context_;
  CodecLogScope log_;
  AvFramePtr frame_;
  AvPacketPtr packet_;
  UnitAssembler assembler_;
  FrameTimes times_;
  std::vector<uint8_t> chroma_;  // interleaved, for a codec that wants its planes apart
  bool emergency_ = false;
  int64_t framesSent_ = 0;
};

}  // namespace Veldrift
