#include "encoder/bgra_to_nv12_shader.h"

#include "encoder/bt709.h"

namespace Veldrift {
namespace {

constexpr std::string_view kSource =
    R"hlsl(// BGRA to NV12: BT.709, limited range, in fixed point of eight bits.
// These must match the namespace bt709 of the CPU's conversion: any divergence shows up as a visible
// chroma shift on iOS.
static const int kYR = 47, kYG = 157, kYB = 16;
static const int kCbR = -26, kCbG = -87, kCbB = 112;
static const int kCrR = 112, kCrG = -102, kCrB = -10;
static const int kYOff = 16, kCOff = 128;

Texture2D<float4> srcBGRA : register(t0);
RWTexture2D<unorm float> dstY : register(u0);
RWTexture2D<unorm float2> dstUV : register(u1);

int rgbToY(int3 rgb) {
  return clamp(((kYR * rgb.r + kYG * rgb.g + kYB * rgb.b + 128) >> 8) + kYOff, 0, 255);
}

int rgbToU(int3 rgb) {
  return clamp(((kCbR * rgb.r + kCbG * rgb.g + kCbB * rgb.b + 128) >> 8) + kCOff, 0, 255);
}

int rgbToV(int3 rgb) {
  return clamp(((kCrR * rgb.r + kCrG * rgb.g + kCrB * rgb.b + 128) >> 8) + kCOff, 0, 255);
}

// The view names the channels: .r is the red byte, wherever it lies. Eight bits make the way to a
// fraction and back without loss.
int3 loadPixel(uint2 position) {
  return int3(round(srcBGRA.Load(int3(int2(position), 0)).rgb * 255.0));
}

[numthreads(8, 8, 1)]
void main(uint3 dtid : SV_DispatchThreadID) {
  uint w, h;
  srcBGRA.GetDimensions(w, h);
  uint2 srcPos = dtid.xy * 2;
  if (srcPos.x + 1 >= w || srcPos.y + 1 >= h) return;

  int3 p00 = loadPixel(srcPos);
  int3 p10 = loadPixel(srcPos + uint2(1, 0));
  int3 p01 = loadPixel(srcPos + uint2(0, 1));
  int3 p11 = loadPixel(srcPos + uint2(1, 1));
  dstY[srcPos] = rgbToY(p00) / 255.0;
  dstY[srcPos + uint2(1, 0)] = rgbToY(p10) / 255.0;
  dstY[srcPos + uint2(0, 1)] = rgbToY(p01) / 255.0;
  dstY[srcPos + uint2(1, 1)] = rgbToY(p11) / 255.0;

  int avgR = (p00.r + p10.r + p01.r + p11.r) >> 2;
  int avgG = (p00.g + p10.g + p01.g + p11.g) >> 2;
  int avgB = (p00.b + p10.b + p01.b + p11.b) >> 2;
  int3 avg = int3(avgR, avgG, avgB);
  dstUV[dtid.xy] = float2(rgbToU(avg) / 255.0, rgbToV(avg) / 255.0);
}
)hlsl";

// The value that the source gives to a constant; the build fails where it gives none.
consteval int InSource(std::string_view name) {
  size_t at = kSource.find(name);
  while (kSource.substr(at + name.size(), 3) != " = ") at = kSource.find(name, at + 1);
  at += name.size() + 3;
  const int sign = kSource[at] == '-' ? -1 : 1;
  if (sign < 0) ++at;
  int value = 0;
  for (; kSource[at] >= '0' && kSource[at] <= '9'; ++at) value = value * 10 + (kSource[at] - '0');
  return sign * value;
}

static_assert(InSource("kYR") == bt709::kYR);
static_assert(InSource("kYG") == bt709::kYG);
static_assert(InSource("kYB") == bt709::kYB);
static_assert(InSource("kCbR") == bt709::kCbR);
static_assert(InSource("kCbG") == bt709::kCbG);
static_assert(InSource("kCbB") == bt709::kCbB);
static_assert(InSource("kCrR") == bt709::kCrR);
static_assert(InSource("kCrG") == bt709::kCrG);
static_assert(InSource("kCrB") == bt709::kCrB);
static_assert(InSource("kYOff") == bt709::kYOff);
static_assert(InSource("kCOff") == bt709::kCOff);

}  // namespace

const std::string_view kBgraToNv12Shader = kSource;

}  // namespace Veldrift
