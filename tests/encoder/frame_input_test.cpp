#include "encoder/frame_input.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

#include "encoder/bgra_to_nv12.h"

namespace Veldrift {
namespace {

using Bytes = std::vector<uint8_t>;

struct Case {
  int32_t width, height, toWidth, toHeight;
};

const Case kCases[] = {{64, 36, 32, 18},   {63, 37, 32, 18},  {100, 60, 32, 18},  {64, 48, 48, 36},
                       {32, 18, 64, 36},   {17, 18, 100, 75}, {200, 100, 20, 16}, {96, 40, 33, 17},
                       {640, 20, 160, 90}, {80, 90, 35, 43}};

// Rows with a gap behind each.
struct Source {
  explicit Source(const Case& c) : stride(c.width * 4 + 12), bytes(size_t(stride) * c.height) {
    std::mt19937 random(static_cast<unsigned>(c.width));
    for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(random());
    picture = {bytes.data(), stride, c.width, c.height};
  }
  ptrdiff_t stride;
  Bytes bytes;
  BgraPicture picture;
};

// truncate((i + 0.5) x ratio), pixel by pixel.
Bytes ScaleByHand(const BgraPicture& from, int32_t width, int32_t height) {
  Bytes out;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const auto row = static_cast<ptrdiff_t>((y + 0.5) * (double(from.height) / height));
      const auto column = static_cast<ptrdiff_t>((x + 0.5) * (double(from.width) / width));
      const uint8_t* pixel = from.pixels + row * from.strideBytes + column * 4;
      out.insert(out.end(), pixel, pixel + 4);
    }
  }
  return out;
}

TEST(FrameInput, AFrameOfAnotherSizeIsSampledAtPixelCentres) {
  FrameInput input;
  for (const Case& c : kCases) {
    const Source source(c);
    input.Set(source.picture, c.toWidth, c.toHeight);
    const BgraPicture scaled = input.Picture();
    ASSERT_EQ(scaled.strideBytes, c.toWidth * 4);
    const Bytes bytes(scaled.pixels, scaled.pixels + scaled.strideBytes * c.toHeight);
    EXPECT_EQ(bytes, ScaleByHand(source.picture, c.toWidth, c.toHeight))
        << c.width << "x" << c.height << " to " << c.toWidth << "x" << c.toHeight;
  }
}

// By a few rows at a time, and without an odd last row or column.
TEST(FrameInput, ConvertingGivesTheBytesOfTheScaledPicture) {
  FrameInput input;
  for (const Case& c : kCases) {
    const Source source(c);
    const Bytes scaled = ScaleByHand(source.picture, c.toWidth, c.toHeight);
    const int32_t width = c.toWidth & ~1;
    const int32_t height = c.toHeight & ~1;
    Bytes luma(size_t(width) * height, 1), expectedLuma(luma);
    Bytes chroma(luma.size() / 2, 1), expectedChroma(chroma);
    ConvertBgraToNv12(scaled.data(), c.toWidth * 4, expectedLuma.data(), expectedChroma.data(),
                      width, height);
    input.Set(source.picture, c.toWidth, c.toHeight);
    input.ConvertToNv12(luma.data(), chroma.data(), width, height);
    EXPECT_EQ(luma, expectedLuma) << c.toWidth << "x" << c.toHeight;
    EXPECT_EQ(chroma, expectedChroma) << c.toWidth << "x" << c.toHeight;
  }
}

TEST(FrameInput, AFrameThatFitsIsNotCopied) {
  const Source source({64, 36, 64, 36});
  FrameInput input;
  input.Set(source.picture, 64, 36);
  EXPECT_EQ(input.Picture().pixels, source.bytes.data());
}

}  // namespace
}  // namespace Veldrift
