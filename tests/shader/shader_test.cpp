// The conversion's shader as the module carries it, compiled by another compiler than Direct3D's
// and run where there is no graphics adapter.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "encoder/bgra_to_nv12.h"
#include "encoder/bgra_to_nv12_shader.h"
#include "platform/file.h"
#include "tests/shader/software_vulkan.h"
#include "tests/support/scratch.h"
#include "tools/platform/process.h"

namespace Veldrift {
namespace {

// The registers t0, u0 and u1 become the bindings 0, 1 and 2; the planes' formats are left open.
std::vector<uint32_t> CompileForVulkan(std::string_view source) {
  const ScratchFolder folder;
  const auto file = folder.Path() / "shader.hlsl";
  const auto code = folder.Path() / "shader.spv";
  const auto said = folder.Path() / "said.txt";
  WriteWholeFile(file, std::string(source));
  const auto compiler =
      StartProcess(VD_GLSLANG,
                   {"-D", "-V", "-e", "main", "-S", "comp", "--hlsl-iomap", "--shift-UAV-binding",
                    "1", "--no-storage-format", "-o", PathText(code), PathText(file)},
                   ProcessOutput{said, said});
  EXPECT_NE(compiler, nullptr);
  if (compiler == nullptr || compiler->Wait() != 0) {
    ADD_FAILURE() << ReadWholeFile(said).value_or("the compiler said nothing");
    return {};
  }
  const std::string bytes = ReadWholeFile(code).value_or("");
  std::vector<uint32_t> words(bytes.size() / sizeof(uint32_t));
  std::memcpy(words.data(), bytes.data(), words.size() * sizeof(uint32_t));
  return words;
}

std::vector<uint8_t> PlainPlanes(const std::vector<uint8_t>& bgra, int width, int height) {
  const size_t luma = static_cast<size_t>(width) * static_cast<size_t>(height);
  std::vector<uint8_t> planes(luma * 3 / 2, SoftwareVulkan::kUnwritten);
  ConvertBgraToNv12Scalar(bgra.data(), width * 4, planes.data(), planes.data() + luma, width,
                          height);
  return planes;
}

class Shader : public testing::Test {
 protected:
  void ExpectPlainBytes(const std::vector<uint8_t>& bgra, int width, int height) {
    const std::vector<uint8_t> planes =
        vulkan_.Convert(bgra, static_cast<uint32_t>(width), static_cast<uint32_t>(height));
    const std::vector<uint8_t> plain = PlainPlanes(bgra, width, height);
    size_t differ = 0;
    for (size_t i = 0; i < plain.size(); ++i) differ += planes[i] != plain[i];
    EXPECT_EQ(differ, 0u) << "of " << plain.size() << " bytes, " << width << "x" << height;
  }

  SoftwareVulkan vulkan_{CompileForVulkan(kBgraToNv12Shader)};
};

TEST_F(Shader, GivesTheBytesOfThePlainConversionOfNoise) {
  struct Size {
    int width;
    int height;
  };
  const Size sizes[] = {{2, 2},   {2, 66},    {16, 16},   {18, 6},     {30, 34},
                        {64, 48}, {642, 362}, {640, 360}, {1920, 1080}};
  std::mt19937 random(4711);
  for (const Size& size : sizes) {
    for (int frames = 0; frames < 3; ++frames) {
      std::vector<uint8_t> frame(static_cast<size_t>(size.width) * size.height * 4);
      for (uint8_t& byte : frame) byte = static_cast<uint8_t>(random());
      ExpectPlainBytes(frame, size.width, size.height);
    }
  }
}

// Every level of each channel beside the ends of the others, where a rounding would show.
TEST_F(Shader, GivesTheBytesOfThePlainConversionOfRamps) {
  constexpr int kSide = 256;
  for (int channel = 0; channel < 3; ++channel) {
    std::vector<uint8_t> frame(kSide * kSide * 4);
    for (size_t pixel = 0; pixel < frame.size() / 4; ++pixel) {
      const size_t row = pixel / kSide;
      for (size_t c = 0; c < 4; ++c) frame[pixel * 4 + c] = (row >> c & 1) != 0 ? 255 : 0;
      frame[pixel * 4 + static_cast<size_t>(channel)] = static_cast<uint8_t>(pixel);
    }
    ExpectPlainBytes(frame, kSide, kSide);
  }
}

}  // namespace
}  // namespace Veldrift
