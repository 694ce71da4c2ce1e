// The picture of an input sample: NV12 in plain memory, packed at the width, or in a buffer with a
// pitch of its own, such as a Direct3D texture.
#pragma once

#include <mfidl.h>
#include <windows.h>

#include "tests/transforms/module/codec.h"

namespace Veldrift::Transforms {

// E_INVALIDARG: the sample holds less than a picture of this size.
HRESULT ReadPicture(IMFSample& sample, int width, int height, Picture& picture);

// Whether the sample's first buffer is a Direct3D texture.
bool IsTexture(IMFSample& sample);

}  // namespace Veldrift::Transforms
