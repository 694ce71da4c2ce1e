// Which transform encodes.
#pragma once

#include <memory>
#include <string>

#include "encoder/encoder_transform.h"
#include "encoder/transform_platform.h"

namespace Veldrift {

struct TransformWanted {
  TransformFormat format;
  std::string engineId;  // as NormaliseEngineId leaves it
  bool allowAsynchronous = false;
};

struct TransformFound {
  std::unique_ptr<EncoderTransform> transform;  // negotiated; null if there is none
  std::string name;
  bool asynchronous = false;
  bool onGpu = false;  // asynchronous, or it took the device
};

// The first that settles, class by class: synchronous hardware, asynchronous hardware, software. An
// engine that was chosen filters them, and if none of its own will do, all are tried. Each attempt
// is told in the log.
TransformFound FindTransform(TransformPlatform& platform, const TransformWanted& wanted);

}  // namespace Veldrift
