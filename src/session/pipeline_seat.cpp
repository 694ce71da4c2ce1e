#include "session/pipeline_seat.h"

#include <utility>

namespace Veldrift {

PipelineSeat::PipelineSeat(EncodedFrameCallback output, Clock& clock)
    : output_(std::move(output)), clock_(clock) {}

PipelineSeat::Reference PipelineSeat::Current() const {
  ReaderLock lock(pipelineLock_);
  return pipeline_;
}

void PipelineSeat::Seat(std::unique_ptr<IHardwareEncoder> encoder) {
  Reference pipeline = std::make_shared<EncoderPipeline>(std::move(encoder), clock_);
  pipeline->SetOutputCallback(output_);
  if (const Reference old = Current()) old->SetOutputCallback({});
  {
    WriterLock lock(pipelineLock_);
    pipeline_.swap(pipeline);
  }
  if (pipeline) pipeline->Stop();
}

void PipelineSeat::RequestIdr() {
  if (const Reference pipeline = Current()) pipeline->RequestIdr();
}

void PipelineSeat::Stop() {
  if (const Reference pipeline = Current()) pipeline->Stop();
}

}  // namespace Veldrift
