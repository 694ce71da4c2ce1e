// The place of an instance's encoder pipeline, which is replaced whole when the phone chooses
// another engine.
#pragma once

#include <memory>

#include "encoder/encoder_pipeline.h"
#include "platform/mutex.h"
#include "support/clock.h"

namespace Veldrift {

// Threads: any. The lock is held to copy or to swap the reference only; everybody works on a
// reference of their own, so that a replacement takes no pipeline away from under a frame.
class PipelineSeat {
 public:
  using Reference = std::shared_ptr<EncoderPipeline>;

  // `output` gets what the seated pipeline encodes, on the encoder's threads.
  PipelineSeat(EncodedFrameCallback output, Clock& clock);

  // Null until the first Seat.
  Reference Current() const VD_EXCLUDES(pipelineLock_);

  // Puts a pipeline around `encoder` in the old one's place. The old one is silenced first, since a
  // late frame of its stream behind the new one's key frame would break the picture, and stopped
  // last: a frame under way in it ends there.
  void Seat(std::unique_ptr<IHardwareEncoder> encoder);

  // Makes the next frame a key frame, if there is a pipeline.
  void RequestIdr();

  // Ends the pipeline, which stays seated.
  void Stop();

 private:
  const EncodedFrameCallback output_;
  Clock& clock_;
  mutable SharedMutex pipelineLock_;
  Reference pipeline_ VD_GUARDED_BY(pipelineLock_);
};

}  // namespace Veldrift
