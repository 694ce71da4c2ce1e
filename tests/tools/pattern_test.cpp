#include "tools/pattern/pattern.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

namespace Veldrift {
namespace {

constexpr PatternStamp kStamp{0x89ABCDEF, 0x0123456789ABCDEF};

struct Luma {
  int width, height;
  std::vector<uint8_t> levels;

  std::optional<PatternStamp> Read() const {
    return ReadStamp(levels.data(), width, height, width);
  }
};

std::vector<uint8_t> Paint(int width, int height, const PatternStamp& stamp) {
  std::vector<uint8_t> bgra(size_t(width) * height * 4);
  PaintPattern(bgra.data(), width, height, width * 4, stamp);
  return bgra;
}

// Full-range luma, good enough to see cells by.
Luma PaintedLuma(int width, int height, const PatternStamp& stamp) {
  const std::vector<uint8_t> bgra = Paint(width, height, stamp);
  Luma luma{width, height, std::vector<uint8_t>(size_t(width) * height)};
  for (size_t i = 0; i < luma.levels.size(); ++i) {
    luma.levels[i] = uint8_t((bgra[4 * i] + 6 * bgra[4 * i + 1] + 3 * bgra[4 * i + 2]) / 10);
  }
  return luma;
}

Luma ScaledDown(const Luma& from, int width, int height) {
  Luma to{width, height, std::vector<uint8_t>(size_t(width) * height)};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const int sx = x * from.width / width;
      const int sy = y * from.height / height;
      to.levels[size_t(y) * width + x] = from.levels[size_t(sy) * from.width + sx];
    }
  }
  return to;
}

Luma Blurred(const Luma& from, int radius) {
  Luma to = from;
  for (int y = 0; y < from.height; ++y) {
    for (int x = 0; x < from.width; ++x) {
      int sum = 0;
      for (int dx = -radius; dx <= radius; ++dx) {
        sum += from.levels[size_t(y) * from.width + std::clamp(x + dx, 0, from.width - 1)];
      }
      to.levels[size_t(y) * from.width + x] = uint8_t(sum / (2 * radius + 1));
    }
  }
  return to;
}

TEST(Pattern, TheStampIsReadBackAtEverySize) {
  constexpr struct {
    int width, height;
  } kSizes[] = {{64, 64},    {66, 70},     {160, 120},  {239, 4000}, {426, 240},
                {640, 360},  {1280, 720},  {720, 1280}, {1366, 768}, {1920, 1080},
                {1921, 817}, {3840, 2160}, {3840, 64}};
  for (const auto& size : kSizes) {
    SCOPED_TRACE(testing::Message() << size.width << "x" << size.height);
    EXPECT_EQ(PaintedLuma(size.width, size.height, kStamp).Read(), kStamp);
  }
}

TEST(Pattern, TheStampSurvivesScalingToAThird) {
  constexpr struct {
    int width, height, scaledWidth, scaledHeight;
  } kSizes[] = {{1280, 720, 426, 240},
                {1920, 1080, 640, 360},
                {3840, 2160, 1280, 720},
                {720, 1280, 240, 426},
                {1280, 720, 1920, 1080}};
  for (const auto& size : kSizes) {
    SCOPED_TRACE(testing::Message() << size.width << "x" << size.height);
    const Luma scaled = ScaledDown(PaintedLuma(size.width, size.height, kStamp), size.scaledWidth,
                                   size.scaledHeight);
    EXPECT_EQ(scaled.Read(), kStamp);
  }
}

TEST(Pattern, TheStampSurvivesBlurAndOtherLevels) {
  Luma luma = Blurred(PaintedLuma(1280, 720, kStamp), 9);
  EXPECT_EQ(luma.Read(), kStamp);
  for (uint8_t& level : luma.levels) level = uint8_t(16 + level * 219 / 255);
  EXPECT_EQ(luma.Read(), kStamp);
  for (uint8_t& level : luma.levels) level = uint8_t(60 + level / 3);
  EXPECT_EQ(luma.Read(), kStamp);
}

TEST(Pattern, AWrongCellIsNoStamp) {
  // Every cell of 640x384 is 20x16 pixels, in the lowest 64 rows.
  const Luma good = PaintedLuma(640, 384, kStamp);
  for (int cell = 0; cell < 128; ++cell) {
    Luma bad = good;
    const int left = cell % 32 * 20;
    const int top = 320 + cell / 32 * 16;
    for (int y = top; y < top + 16; ++y) {
      for (int x = left; x < left + 20; ++x) {
        uint8_t& level = bad.levels[size_t(y) * 640 + x];
        level = uint8_t(255 - level);
      }
    }
    EXPECT_EQ(bad.Read(), std::nullopt) << "cell " << cell;
  }
}

TEST(Pattern, PlainPicturesCarryNoStamp) {
  for (const int level : {0, 16, 128, 255}) {
    const Luma plain{320, 240, std::vector<uint8_t>(320 * 240, uint8_t(level))};
    EXPECT_EQ(plain.Read(), std::nullopt) << level;
  }
  EXPECT_EQ((Luma{8, 8, std::vector<uint8_t>(64)}).Read(), std::nullopt);
}

TEST(Pattern, NothingIsPaintedBesideThePicture) {
  constexpr int kWidth = 100, kHeight = 80, kStride = kWidth * 4 + 32;
  std::vector<uint8_t> bgra(size_t(kStride) * kHeight, 0xA5);
  PaintPattern(bgra.data(), kWidth, kHeight, kStride, kStamp);
  for (int y = 0; y < kHeight; ++y) {
    const uint8_t* row = bgra.data() + size_t(y) * kStride;
    for (int x = 0; x < kWidth; ++x) ASSERT_EQ(row[4 * x + 3], 0xFF) << x << "," << y;
    for (int i = kWidth * 4; i < kStride; ++i) ASSERT_EQ(row[i], 0xA5) << "row " << y;
  }
}

TEST(Pattern, ThePictureMovesAndIsTheSameForTheSameStamp) {
  EXPECT_EQ(Paint(320, 240, {7, 1}), Paint(320, 240, {7, 1}));
  const std::vector<uint8_t> one = Paint(320, 240, {7, 1});
  const std::vector<uint8_t> next = Paint(320, 240, {8, 1});
  size_t different = 0;
  for (size_t i = 0; i < one.size() / 2; ++i) different += one[i] != next[i];
  EXPECT_GT(different, one.size() / 8);  // of the upper half, which has no cells
}

TEST(Pattern, AStampOverAnotherPictureLeavesTheRestAlone) {
  std::vector<uint8_t> bgra(size_t(640) * 384 * 4, 0x40);
  PaintStamp(bgra.data(), 640, 384, 640 * 4, kStamp);
  EXPECT_TRUE(std::all_of(bgra.begin(), bgra.begin() + 320 * 640 * 4,
                          [](uint8_t value) { return value == 0x40; }));
  EXPECT_NE(bgra[size_t(330) * 640 * 4], 0x40);
}

}  // namespace
}  // namespace Veldrift
