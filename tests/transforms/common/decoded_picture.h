// What the module decodes for tests. Its export, to be had by GetProcAddress from the module's
// file:
//
//   int VdDecode(int hevc, const uint8_t* annexB, size_t size, VdPictureSink sink, void* state);
//
// decodes a whole stream and calls the sink with each picture, in order. The number of pictures, or
// -1 if the decoder refused a part of the stream.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

namespace Veldrift::Transforms {

// 4:2:0, valid during the call only.
struct DecodedPicture {
  int32_t width;
  int32_t height;
  const uint8_t* planes[3];
  int32_t strides[3];
  int32_t bt709Limited;  // whether the stream says so
  int32_t damaged;
};

using PictureSink = void(WINAPI*)(void* state, const DecodedPicture* picture);
using DecodeFunction = int(WINAPI*)(int hevc, const uint8_t* annexB, size_t size, PictureSink sink,
                                    void* state);
inline constexpr char kDecodeExport[] = "VdDecode";

}  // namespace Veldrift::Transforms
