// The module's decoder, for tests that look at pictures.
#pragma once

#include "tests/transforms/common/decoded_picture.h"

namespace Veldrift::Transforms {

// From the module beside the test's program; null if it isn't there.
DecodeFunction FindDecoder();

}  // namespace Veldrift::Transforms
