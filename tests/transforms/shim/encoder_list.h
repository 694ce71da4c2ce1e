// The list of transforms as the test wants it.
#pragma once

#include <mfapi.h>
#include <mfidl.h>
#include <mftransform.h>
#include <windows.h>

namespace Veldrift::Transforms {

// Null: the builtin isn't there, or has no such export.
void* BuiltinFunction(const char* name);

// MFTEnumEx: the builtin's list; of the encoders in it those that VD_TRANSFORMS lists, in its
// order, with name and maker.
HRESULT ListTransforms(const GUID& category, UINT32 flags, const MFT_REGISTER_TYPE_INFO* input,
                       const MFT_REGISTER_TYPE_INFO* output, IMFActivate*** list, UINT32* count);

}  // namespace Veldrift::Transforms
