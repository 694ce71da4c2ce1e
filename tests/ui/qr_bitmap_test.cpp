#include "ui/qr_code.h"

#include <gtest/gtest.h>

#include "tests/ui/qr_texts.h"

namespace Veldrift {
namespace {

// The smallest rectangle around everything black.
struct Extent {
  int left, top, right, bottom;  // the last two are the first white ones behind

  bool operator==(const Extent&) const = default;
};

void PrintTo(const Extent& extent, std::ostream* out) {
  *out << extent.left << ',' << extent.top << " to " << extent.right << ',' << extent.bottom;
}

Extent BlackIn(const QrBitmap& bitmap) {
  Extent extent{bitmap.side, bitmap.side, 0, 0};
  for (int y = 0; y < bitmap.side; ++y) {
    for (int x = 0; x < bitmap.side; ++x) {
      if (bitmap.pixels[size_t(y) * size_t(bitmap.side) + size_t(x)] == kQrWhite) continue;
      extent = {std::min(extent.left, x), std::min(extent.top, y), std::max(extent.right, x + 1),
                std::max(extent.bottom, y + 1)};
    }
  }
  return extent;
}

TEST(QrBitmap, TheCodeStandsCentredInWholePixels) {
  constexpr struct {
    size_t bytes;
    int side;
    Extent black;
  } kCases[] = {
      {1, 25, {2, 2, 23, 23}},  // version 1: 21 modules and 4 of margin, one pixel each
      {1, 26, {2, 2, 23, 23}},  // the odd pixel goes to the right and the bottom
      {1, 27, {3, 3, 24, 24}},        {1, 49, {14, 14, 35, 35}}, {1, 50, {4, 4, 46, 46}},
      {80, 200, {26, 26, 173, 173}},   // version 8: 200 / 53 is 3, the offset 20
      {1272, 200, {11, 11, 188, 188}}  // version 40: 200 / 181 is 1, the offset 9
  };
  for (const auto& expected : kCases) {
    const auto bitmap = RenderQrToBitmap(EncodeQrText(Letters(expected.bytes)), expected.side);
    ASSERT_TRUE(bitmap.has_value());
    EXPECT_EQ(bitmap->side, expected.side);
    EXPECT_EQ(bitmap->pixels.size(), size_t(expected.side) * size_t(expected.side));
    EXPECT_EQ(BlackIn(*bitmap), expected.black) << expected.bytes << " in " << expected.side;
  }
}

TEST(QrBitmap, EachPixelIsItsModules) {
  const QrCode code = EncodeQrText("Desk");
  const auto bitmap = RenderQrToBitmap(code, 3 * 25 + 2);
  ASSERT_TRUE(bitmap.has_value());
  for (int y = 0; y < bitmap->side; ++y) {
    for (int x = 0; x < bitmap->side; ++x) {
      const int column = (x - 1) / 3 - 2;
      const int row = (y - 1) / 3 - 2;
      const bool inside = column >= 0 && row >= 0 && column < code.size && row < code.size;
      const bool dark = inside && code.modules[code.Index(column, row)] == 1;
      ASSERT_EQ(bitmap->pixels[size_t(y * bitmap->side + x)], dark ? 0xFF000000 : 0xFFFFFFFF)
          << x << ',' << y;
    }
  }
}

TEST(QrBitmap, NothingIsDrawnSmallerThanAPixelAModule) {
  const QrCode code = EncodeQrText("Desk");
  EXPECT_TRUE(RenderQrToBitmap(code, 25).has_value());
  for (const int side : {24, 1, 0, -1, -200}) EXPECT_FALSE(RenderQrToBitmap(code, side)) << side;
  EXPECT_FALSE(RenderQrToBitmap({}, 200).has_value());
}

}  // namespace
}  // namespace Veldrift
