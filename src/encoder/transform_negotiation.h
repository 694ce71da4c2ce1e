// Settling with one transform what goes in and what comes out.
#pragma once

#include "encoder/encoder_transform.h"

namespace Veldrift {

struct Negotiated {
  bool accepted = false;
  bool asynchronous = false;
  bool tookDevice = false;  // it accepted the device manager
};

// Unlocks an asynchronous transform if such are allowed, offers it the device, and sets the types,
// output first, since an encoder offers its input types only behind that. A refusal is logged with
// `className`.
Negotiated NegotiateTransform(EncoderTransform& transform, const TransformFormat& format,
                              const char* className, bool allowAsynchronous);

}  // namespace Veldrift
