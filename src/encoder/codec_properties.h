// What an encoder transform is told about the stream that it is to make.
#pragma once

#include "encoder/encoder_backend.h"
#include "encoder/encoder_transform.h"

namespace Veldrift {

// Sets what the plan says, in the one order that drivers were seen to take. What a codec rejects it
// goes without.
void SetCodecProperties(EncoderTransform& transform, const EncoderPlan& plan);

}  // namespace Veldrift
