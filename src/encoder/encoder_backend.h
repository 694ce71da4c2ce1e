// The seam below the encoder: what differs between libavcodec and Media Foundation. Everything that
// an encoder decides stands above it, once, in EncoderShell.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "encoder/frame_input.h"
#include "encoder/hardware_encoder.h"
#include "encoder/output_port.h"

namespace Veldrift {

// What a codec is to be opened for: checked and complete.
struct EncoderPlan {
  int32_t codec = kCodecHevc;
  int32_t width = 0;  // at least 16, as all sides; perhaps odd
  int32_t height = 0;
  int32_t fps = 30;          // at least 1
  int32_t gopSize = 1;       // at least 1
  uint32_t bitrate = 0;      // mean, bits per second; never 0
  uint32_t maxBitrate = 0;   // the ceiling that goes with it
  uint32_t peakBitrate = 0;  // what was asked for as ceiling of VBR, 0 if nothing
  int32_t rateControl = kRateControlBitrate;
  float quality = 0.75F;
  uint32_t frameByteCap = kDefaultFrameByteCap;
  std::string engineId = "auto";
};

// What was opened.
struct OpenedEncoder {
  std::string name;         // the codec's own
  const char* kind = "SW";  // "SW", "HW", "HW-async"
  uint32_t bitrate = 0;     // the mean that is in force, which a limit of the codec's can end
  bool asynchronous = false;
  size_t parameterSetBytes = 0;  // known by now
};

// How a frame that was taken in is to be encoded.
struct FrameOrder {
  uint64_t timestamp = 0;  // comes back with the access unit
  bool keyFrame = false;
  bool emergency = false;  // at the worst quantiser
};

// One codec at a time, and what it needs. Output is assembled (UnitAssembler) and posted to the
// port of Open, on any thread and under any lock of the backend's; a backend emits only on threads
// of its own, with no lock held (OutputPort::Emit). Behind Close no unit is posted.
//
// Threads: one at a time, under the shell's lock. No operation waits for a running callback.
// Real: AvBackend (encoder/av/). Fake: tests/support/scripted_backend.h.
class EncoderBackend {
 public:
  // What became of a frame before anything was decided for it.
  enum class Intake {
    Taken,     // Submit follows
    TakenNew,  // the same, and the codec was opened anew: the frame has to be a key frame
    Dropped,   // nothing of it has happened
    Failed,    // nothing can be encoded any more: Close follows
  };

  virtual ~EncoderBackend() = default;

  // Opens the codec for the plan. False, with nothing open, if that fails, which is logged.
  virtual bool Open(const EncoderPlan& plan, const std::shared_ptr<OutputPort>& port,
                    OpenedEncoder& opened) = 0;
  // Ends the codec, perhaps with output. Does nothing if none is open.
  virtual void Close() = 0;

  // Takes the frame over, as far as no decision is needed for that. `emergency`: it is to be
  // encoded at the worst quantiser, for which some codecs have to be opened anew.
  virtual Intake TakeIn(FrameInput& frame, bool emergency) = 0;
  // Encodes the frame that was taken in. False if it is lost.
  virtual bool Submit(const FrameOrder& order) = 0;

  // The open codec takes the changes below; without that, values count at the next opening.
  virtual bool TakesChanges() const = 0;
  // From the next frame on. A codec that can't change while it runs notes the value and is opened
  // anew with the next frame. 0, or the platform's own error number.
  virtual int32_t SetMeanRate(uint32_t bitsPerSecond) = 0;
  virtual int32_t SetMaxRate(uint32_t bitsPerSecond) = 0;
  // The same, with a line of its own in the log: how a quality reaches a codec differs.
  virtual void SetQuality(float quality) = 0;
};

using BackendFactory = std::function<std::unique_ptr<EncoderBackend>()>;

}  // namespace Veldrift
