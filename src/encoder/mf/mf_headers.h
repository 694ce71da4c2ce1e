// The headers of Media Foundation, Direct3D 11 and DXGI in the order that they need, and what these
// lack. The identifiers that they declare come from the libraries mfuuid, strmiids and dxguid;
// those of codec properties from the headers themselves. No file defines INITGUID.
#pragma once

#include "platform/win32/windows_headers.h"
// windows.h stands before the others.
#include <codecapi.h>
#include <d3d10.h>
#include <d3d11.h>
#include <d3dcompiler.h>
#include <dxgi.h>
#include <mfapi.h>
#include <mferror.h>
#include <mfidl.h>
#include <mftransform.h>
// ICodecAPI: icodecapi.h declares it as well and must not stand beside this one.
#include <strmif.h>

// The one interface here whose identifier the compiler isn't told by its header.
__CRT_UUID_DECL(ICodecAPI, 0x901db4c7, 0x31ce, 0x41a2, 0x85, 0xdc, 0x8f, 0xa0, 0xbf, 0x41, 0xb8,
                0xda)

namespace Veldrift {

// Attributes that the headers of mingw-w64 don't know.
inline constexpr GUID kMftHardwareVendorId = {
    0x3aecb0cc, 0x035b, 0x4bcc, {0x81, 0x85, 0x2b, 0x8d, 0x55, 0x1e, 0xf3, 0xaf}};
inline constexpr GUID kMfBuffersPerSample = {
    0x873c5171, 0x1e3d, 0x4e25, {0x98, 0x8d, 0xb4, 0x33, 0xce, 0x04, 0x19, 0x83}};

}  // namespace Veldrift
