// The conversion with read-back on an adapter whose driver takes the shader.
#include "encoder/mf/gpu_converter.h"

#include "tests/gpu/context_doubles.h"
#include "tests/gpu/gpu_fixture.h"

namespace Veldrift {
namespace {

class GpuConverterTest : public GpuTest {
 protected:
  // The planes between two marks, or nothing if the converter declines.
  std::vector<uint8_t> Convert(const NoiseFrame& frame) {
    const BgraPicture picture = frame.Picture();
    const size_t luma = static_cast<size_t>(picture.width) * static_cast<size_t>(picture.height);
    std::vector<uint8_t> planes(luma * 3 / 2 + 1, 0xEE);
    if (!converter_.Convert(picture, planes.data(), planes.data() + luma)) return {};
    EXPECT_EQ(planes.back(), 0xEE);
    planes.pop_back();
    return planes;
  }

  GpuConverter converter_{device_, shader_};
};

using Converter = GpuConverterTest;

TEST_F(Converter, GivesTheBytesOfThePlainConversion) {
  struct Size {
    int32_t width;
    int32_t height;
  };
  const Size sizes[] = {{2, 2},     {16, 16},    {18, 6},      {64, 48},  {30, 34},
                        {642, 362}, {1280, 720}, {1920, 1080}, {640, 360}};
  uint32_t seed = 4711;
  for (const Size& size : sizes) {
    for (int frames = 0; frames < 3; ++frames) {
      const NoiseFrame frame(size.width, size.height, ++seed);
      EXPECT_EQ(Differences(Convert(frame), frame.Nv12()), 0u)
          << size.width << "x" << size.height << ", seed " << seed;
    }
  }
}

TEST_F(Converter, ATexturesRowsMayBeWiderThanThePictures) {
  const NoiseFrame frame(64, 48, 1);
  const WideRows wide(device_.Context());
  EXPECT_EQ(Differences(Convert(frame), frame.Nv12()), 0u);
  EXPECT_EQ(wide.Mapped(), 3);  // the picture, and the two planes
}

TEST_F(Converter, AnOddSideIsLeftToTheCpuFromThereOnUntilItIsClosed) {
  const NoiseFrame even(64, 48, 1);
  EXPECT_EQ(Differences(Convert(even), even.Nv12()), 0u);
  EXPECT_TRUE(Convert(NoiseFrame(63, 48, 2)).empty());
  EXPECT_TRUE(Convert(even).empty());
  converter_.Close();
  EXPECT_EQ(Differences(Convert(even), even.Nv12()), 0u);
}

}  // namespace
}  // namespace Veldrift
