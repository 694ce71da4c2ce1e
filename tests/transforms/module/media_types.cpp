#include "tests/transforms/module/media_types.h"

#include <mfapi.h>

#include <algorithm>

#include "tests/transforms/module/platform.h"

namespace Veldrift::Transforms {
namespace {

constexpr UINT32 kProgressive = 2;

UINT64 Pack(int high, int low) {
  return UINT64{static_cast<UINT32>(high)} << 32 | static_cast<UINT32>(low);
}

bool ReadPair(IMFMediaType& type, REFGUID key, int& high, int& low) {
  UINT64 value = 0;
  if (FAILED(type.GetUINT64(key, &value))) return false;
  high = static_cast<int>(value >> 32);
  low = static_cast<int>(value & 0xFFFFFFFF);
  return true;
}

bool HasGuid(IMFMediaType& type, REFGUID key, REFGUID wanted) {
  GUID value = {};
  return SUCCEEDED(type.GetGUID(key, &value)) && IsEqualGUID(value, wanted);
}

// A value that isn't given is fine.
bool HasOrLacks(IMFMediaType& type, REFGUID key, UINT32 wanted) {
  UINT32 value = 0;
  return FAILED(type.GetUINT32(key, &value)) || value == wanted;
}

const GUID& SubtypeOf(const Kind& kind) {
  return kind.hevc ? MFVideoFormat_HEVC : MFVideoFormat_H264;
}

bool FitsProfile(IMFMediaType& type, bool hevc) {
  constexpr UINT32 kMain = 1;
  constexpr UINT32 kHigh = 100;
  return HasOrLacks(type, MF_MT_MPEG2_PROFILE, hevc ? kMain : kHigh);
}

bool FitsSize(const CodecSize& size, const Traits& traits) {
  constexpr int kSmallest = 16;
  return size.width >= kSmallest && size.height >= kSmallest && size.width <= traits.maxWidth &&
         size.height <= traits.maxHeight && size.width % 2 == 0 && size.height % 2 == 0;
}

}  // namespace

bool ReadOutputType(IMFMediaType& type, const Kind& kind, const Traits& traits,
                    OutputFormat& format) {
  if (!HasGuid(type, MF_MT_MAJOR_TYPE, MFMediaType_Video) ||
      !HasGuid(type, MF_MT_SUBTYPE, SubtypeOf(kind))) {
    return false;
  }
  CodecSize& size = format.size;
  size.hevc = kind.hevc;
  int perSeconds = 0;
  return ReadPair(type, MF_MT_FRAME_SIZE, size.width, size.height) && FitsSize(size, traits) &&
         ReadPair(type, MF_MT_FRAME_RATE, size.fps, perSeconds) && size.fps > 0 &&
         perSeconds == 1 && SUCCEEDED(type.GetUINT32(MF_MT_AVG_BITRATE, &format.bitRate)) &&
         format.bitRate > 0 && HasOrLacks(type, MF_MT_INTERLACE_MODE, kProgressive) &&
         FitsProfile(type, kind.hevc);
}

bool FitsInput(IMFMediaType& type, const CodecSize& size) {
  int width = 0;
  int height = 0;
  int fps = 0;
  int perSeconds = 0;
  return HasGuid(type, MF_MT_MAJOR_TYPE, MFMediaType_Video) &&
         HasGuid(type, MF_MT_SUBTYPE, MFVideoFormat_NV12) &&
         ReadPair(type, MF_MT_FRAME_SIZE, width, height) && width == size.width &&
         height == size.height && ReadPair(type, MF_MT_FRAME_RATE, fps, perSeconds) &&
         fps == size.fps && perSeconds == 1 && HasOrLacks(type, MF_MT_INTERLACE_MODE, kProgressive);
}

std::string Describe(IMFMediaType& type) {
  std::string text = HasGuid(type, MF_MT_SUBTYPE, MFVideoFormat_H264)   ? "H264"
                     : HasGuid(type, MF_MT_SUBTYPE, MFVideoFormat_HEVC) ? "HEVC"
                     : HasGuid(type, MF_MT_SUBTYPE, MFVideoFormat_NV12) ? "NV12"
                                                                        : "other";
  const auto addPair = [&](REFGUID key, const char* name, const char* between) {
    int high = 0;
    int low = 0;
    if (!ReadPair(type, key, high, low)) return;
    text += std::string(" ") + name + std::to_string(high) + between + std::to_string(low);
  };
  const auto addNumber = [&](REFGUID key, const char* name) {
    UINT32 value = 0;
    if (SUCCEEDED(type.GetUINT32(key, &value))) text += name + std::to_string(value);
  };
  addPair(MF_MT_FRAME_SIZE, "", "x");
  addPair(MF_MT_FRAME_RATE, "fps=", "/");
  addPair(MF_MT_PIXEL_ASPECT_RATIO, "aspect=", ":");
  addNumber(MF_MT_INTERLACE_MODE, " interlace=");
  addNumber(MF_MT_AVG_BITRATE, " rate=");
  addNumber(MF_MT_MPEG2_PROFILE, " profile=");
  return text;
}

ComPtr<IMFMediaType> MakeBareOutputType(const Kind& kind) {
  ComPtr<IMFMediaType> type = MakeMediaType();
  type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
  type->SetGUID(MF_MT_SUBTYPE, SubtypeOf(kind));
  return type;
}

ComPtr<IMFMediaType> MakeInputType(DWORD place, const Traits& traits, const CodecSize& size) {
  std::vector<GUID> subtypes = {MFVideoFormat_IYUV, MFVideoFormat_YUY2};
  if (traits.nv12 != Nv12::None) {
    subtypes.insert(traits.nv12 == Nv12::First ? subtypes.begin() : subtypes.end(),
                    MFVideoFormat_NV12);
  }
  if (place >= subtypes.size()) return {};
  ComPtr<IMFMediaType> type = MakeMediaType();
  type->SetGUID(MF_MT_MAJOR_TYPE, MFMediaType_Video);
  type->SetGUID(MF_MT_SUBTYPE, subtypes[place]);
  type->SetUINT64(MF_MT_FRAME_SIZE, Pack(size.width, size.height));
  type->SetUINT64(MF_MT_FRAME_RATE, Pack(size.fps, 1));
  return type;
}

ComPtr<IMFMediaType> CopyType(IMFMediaType& type, const Bytes& header) {
  ComPtr<IMFMediaType> copy = MakeMediaType();
  type.CopyAllItems(copy.Get());
  if (header.empty()) {
    copy->DeleteItem(MF_MT_MPEG_SEQUENCE_HEADER);
  } else {
    copy->SetBlob(MF_MT_MPEG_SEQUENCE_HEADER, header.data(), static_cast<UINT32>(header.size()));
  }
  return copy;
}

}  // namespace Veldrift::Transforms
