// How frames are fed to a transform and its output is taken, which its kind decides.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "encoder/encoder_transform.h"

namespace Veldrift {

// Drives one negotiated transform, which outlives it, from Start to Stop.
//
// Threads: one at a time, under the encoder's lock.
class TransformDriver {
 public:
  // A sample in memory, shared: whoever still waits with it holds it.
  using Sample = std::shared_ptr<TransformSample>;

  virtual ~TransformDriver() = default;

  // Begins the stream. False: it can't be driven, which is logged.
  virtual bool Start() = 0;

  // A sample to convert a frame into. Null, with the error, if there is no memory.
  virtual Sample MemorySample(int32_t& error) = 0;
  // A sample may be given a second time: its mark of a key frame stays on it.
  virtual bool ReusesSamples() const = 0;
  // Gives the frame to the transform, or keeps it until that wants it. `given` is the time that
  // comes back with its unit; `time` the sample's own. Below 0: the transform refused it.
  virtual int32_t Put(const Sample& sample, int64_t time, uint64_t given) = 0;

  // The error with which a sample was refused since the last question, behind its Put; else 0.
  virtual int32_t TakeRefusal() = 0;

  // Waits until the transform has encoded what it was given, as far as it can be asked to. False:
  // it may still be at it.
  virtual bool Drain() = 0;
  // Takes nothing more from the transform, and lets go of all samples.
  virtual void Stop() = 0;

  // Of the parameter sets that it gives beside the stream.
  virtual size_t ParameterSetBytes() = 0;
};

}  // namespace Veldrift
