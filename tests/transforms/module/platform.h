// What the module calls of Media Foundation. It asks the platform's own library and not the shim,
// whose failures and traces are for the program under test.
#pragma once

#include <mfidl.h>
#include <mftransform.h>
#include <windows.h>

#include "tests/transforms/common/com_ptr.h"

namespace Veldrift::Transforms {

// Under names of ours: not every Wine defines them here.
inline constexpr GUID kUnknownId = {0, 0, 0, {0xc0, 0, 0, 0, 0, 0, 0, 0x46}};
inline constexpr GUID kClassFactoryId = {1, 0, 0, {0xc0, 0, 0, 0, 0, 0, 0, 0x46}};

ComPtr<IMFAttributes> MakeAttributes();
ComPtr<IMFMediaType> MakeMediaType();
ComPtr<IMFMediaEventQueue> MakeEventQueue();
// A sample with buffers of `bytes` bytes each, none of them filled.
ComPtr<IMFSample> MakeSample(DWORD bytes, int buffers);

}  // namespace Veldrift::Transforms
