// What an encoder accepts of media types, and what it offers.
#pragma once

#include <mfidl.h>
#include <windows.h>

#include <string>

#include "tests/transforms/common/com_ptr.h"
#include "tests/transforms/module/codec.h"
#include "tests/transforms/module/traits.h"

namespace Veldrift::Transforms {

struct OutputFormat {
  CodecSize size;
  UINT32 bitRate = 0;
};

// Everything that an encoder needs to know, checked: MF_E_INVALIDMEDIATYPE is the answer else.
bool ReadOutputType(IMFMediaType& type, const Kind& kind, const Traits& traits,
                    OutputFormat& format);

// Whether it is NV12 of the output's size and rate.
bool FitsInput(IMFMediaType& type, const CodecSize& size);

// What it says, for the trace: "H264 208x144 fps=30/1 aspect=1:1 interlace=2 rate=4000000
// profile=100", each only if it is there.
std::string Describe(IMFMediaType& type);

// The subtype alone, before the client has said a size.
ComPtr<IMFMediaType> MakeBareOutputType(const Kind& kind);

// The input type at a place of the list; null behind its end.
ComPtr<IMFMediaType> MakeInputType(DWORD place, const Traits& traits, const CodecSize& size);

// A type of its own, which the other's owner can't change; with the sequence header, if there is
// one.
ComPtr<IMFMediaType> CopyType(IMFMediaType& type, const Bytes& header);

}  // namespace Veldrift::Transforms
