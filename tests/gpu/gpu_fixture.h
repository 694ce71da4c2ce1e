// What the tests on a graphics adapter share: a device, frames of noise, and the bytes that the
// plain conversion makes of them.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "encoder/bgra_to_nv12.h"
#include "encoder/mf/conversion_shader.h"
#include "tests/support/scratch.h"

namespace Veldrift {

// A frame whose rows have room behind them, and that room has noise as well.
class NoiseFrame {
 public:
  NoiseFrame(int32_t width, int32_t height, uint32_t seed)
      : width_(width),
        height_(height),
        stride_(width * 4 + 20),
        bytes_(static_cast<size_t>(stride_) * static_cast<size_t>(height)) {
    std::minstd_rand random(seed);
    for (uint8_t& byte : bytes_) byte = static_cast<uint8_t>(random() >> 8);
  }

  BgraPicture Picture() const { return {bytes_.data(), stride_, width_, height_}; }

  // Luma, then chroma, as the plain conversion has them.
  std::vector<uint8_t> Nv12() const {
    const size_t luma = static_cast<size_t>(width_) * static_cast<size_t>(height_);
    std::vector<uint8_t> planes(luma * 3 / 2);
    ConvertBgraToNv12Scalar(bytes_.data(), stride_, planes.data(), planes.data() + luma, width_,
                            height_);
    return planes;
  }

 private:
  const int32_t width_;
  const int32_t height_;
  const int32_t stride_;
  std::vector<uint8_t> bytes_;
};

// How many bytes differ; all, if the sizes do.
inline size_t Differences(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  if (a.size() != b.size()) return std::max(a.size(), b.size());
  size_t count = 0;
  for (size_t i = 0; i < a.size(); ++i) count += a[i] != b[i];
  return count;
}

// The media layer, started, and a device on this machine's adapter.
class GpuTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    ASSERT_TRUE(MfLibraries::OfProcess().media.has_value());
    ASSERT_EQ(MfLibraries::OfProcess().media->startup(0x20070, MFSTARTUP_NOSOCKET), S_OK);
  }
  static void TearDownTestSuite() {
    MfLibraries::OfProcess().media->shutdown();
    CoUninitialize();
  }

  void SetUp() override {
    device_.Open("auto");
    ASSERT_TRUE(device_.Complete()) << "no Direct3D 11 device: is there a screen?";
  }

  // This process's, of which a test may spoil some.
  MfLibraries libraries_ = MfLibraries::OfProcess();
  D3dDevice device_{libraries_};
  ConversionShader shader_{libraries_, device_};
};

}  // namespace Veldrift
