#include "encoder/bgra_to_nv12.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <vector>

namespace Veldrift {
namespace {

struct Planes {
  std::vector<uint8_t> luma;
  std::vector<uint8_t> chroma;
  bool operator==(const Planes&) const = default;
};

// What the conversion leaves alone keeps a mark, so that a byte too many shows.
Planes Convert(ConversionKind kind, const std::vector<uint8_t>& frame, int stride, int width,
               int height) {
  Planes planes{std::vector<uint8_t>(static_cast<size_t>(width * height + 64), 0xEE),
                std::vector<uint8_t>(static_cast<size_t>(width * (height / 2) + 64), 0xEE)};
  ConvertBgraToNv12With(kind, frame.data(), stride, planes.luma.data(), planes.chroma.data(), width,
                        height);
  return planes;
}

void ExpectAllWaysEqual(const std::vector<uint8_t>& frame, int stride, int width, int height) {
  const Planes plain = Convert(ConversionKind::Plain, frame, stride, width, height);
  for (const ConversionKind kind : {ConversionKind::Ssse3, ConversionKind::Avx2}) {
    if (!ConversionSupported(kind)) continue;
    EXPECT_TRUE(Convert(kind, frame, stride, width, height) == plain)
        << "kind " << static_cast<int>(kind) << ", " << width << "x" << height << ", stride "
        << stride;
  }
}

TEST(BgraToNv12, KnownColoursHaveTheirLevels) {
  struct Case {
    std::array<uint8_t, 4> bgra;
    std::array<uint8_t, 3> levels;
  };
  const Case cases[] = {
      {{255, 255, 255, 255}, {235, 127, 128}},  // the Cb row sums to -1
      {{0, 0, 0, 255}, {16, 128, 128}},
      {{0, 0, 255, 255}, {63, 102, 240}},
  };
  for (const Case& c : cases) {
    std::vector<uint8_t> frame;
    for (int i = 0; i < 64 * 2; ++i) frame.insert(frame.end(), c.bgra.begin(), c.bgra.end());
    const Planes planes = Convert(ConversionKind::Plain, frame, 256, 64, 2);
    EXPECT_EQ(planes.luma[0], c.levels[0]);
    EXPECT_EQ(planes.chroma[0], c.levels[1]);
    EXPECT_EQ(planes.chroma[1], c.levels[2]);
    ExpectAllWaysEqual(frame, 256, 64, 2);
  }
}

TEST(BgraToNv12, EveryWayGivesTheSameBytesAtEverySize) {
  std::mt19937 random(4711);
  for (int width = 1; width <= 100; ++width) {
    for (const int height : {1, 2, 3, 6, 7}) {
      const int stride = width * 4 + static_cast<int>(random() % 3) * 4;
      std::vector<uint8_t> frame(static_cast<size_t>(stride * height));
      for (uint8_t& byte : frame) byte = static_cast<uint8_t>(random());
      ExpectAllWaysEqual(frame, stride, width, height);
    }
  }
}

// Where a sum could overflow: every channel of every pixel at an end of its range.
TEST(BgraToNv12, EveryWayGivesTheSameBytesAtTheExtremes) {
  constexpr int kSide = 128;
  std::mt19937 random(815);
  const uint8_t ends[] = {0, 1, 127, 128, 129, 254, 255};
  for (int round = 0; round < 50; ++round) {
    std::vector<uint8_t> frame(kSide * kSide * 4);
    const size_t choices = round % 2 ? 7 : 2;
    for (uint8_t& byte : frame) byte = choices == 2 ? (random() % 2 ? 255 : 0) : ends[random() % 7];
    ExpectAllWaysEqual(frame, kSide * 4, kSide, kSide);
  }
}

TEST(BgraToNv12, AnOddLastRowAndColumnGetNoChroma) {
  const std::vector<uint8_t> white(5 * 3 * 4, 255);
  const Planes planes = Convert(ConversionKind::Plain, white, 20, 5, 3);
  EXPECT_EQ(planes.luma[14], 235);
  EXPECT_EQ(planes.luma[15], 0xEE);
  EXPECT_EQ(planes.chroma[3], 128);
  EXPECT_EQ(planes.chroma[4], 0xEE);
}

}  // namespace
}  // namespace Veldrift
