// A Windows that lacks a library, or whose library lacks a function.
#include "encoder/mf/mf_libraries.h"

#include <gmock/gmock.h>

#include "encoder/mf/com_scope.h"

namespace Veldrift {
namespace {

using testing::HasSubstr;

TEST(MfLibraries, ThisProcessHasThemAll) {
  const MfLibraries& libraries = MfLibraries::OfProcess();
  EXPECT_TRUE(libraries.media && libraries.direct3d && libraries.dxgi && libraries.compiler);
  EXPECT_EQ(&libraries, &MfLibraries::OfProcess());
  ComPtr<IMFAttributes> attributes;
  EXPECT_EQ(libraries.media->createAttributes(&attributes, 1), S_OK);
  EXPECT_EQ(attributes->SetUINT32(kMfBuffersPerSample, 7), S_OK);
}

TEST(MfLibraries, AMissingLibraryIsNoTable) {
  std::string error;
  EXPECT_FALSE(FindMediaApi("vd_no_such_library.dll", error).has_value());
  EXPECT_THAT(error, HasSubstr("vd_no_such_library.dll: "));
  EXPECT_FALSE(FindDirect3dApi("vd_no_such_library.dll", error).has_value());
  EXPECT_FALSE(FindDxgiApi("vd_no_such_library.dll", error).has_value());
  EXPECT_FALSE(FindShaderCompilerApi("vd_no_such_library.dll", error).has_value());
}

TEST(MfLibraries, AMissingFunctionIsNoTable) {
  std::string error;
  EXPECT_FALSE(FindMediaApi("kernel32.dll", error).has_value());
  EXPECT_EQ(error, "kernel32.dll has no MFStartup");
  EXPECT_FALSE(FindDirect3dApi("kernel32.dll", error).has_value());
  EXPECT_EQ(error, "kernel32.dll has no D3D11CreateDevice");
  EXPECT_FALSE(FindDxgiApi("kernel32.dll", error).has_value());
  EXPECT_EQ(error, "kernel32.dll has no CreateDXGIFactory1");
  EXPECT_FALSE(FindShaderCompilerApi("kernel32.dll", error).has_value());
  EXPECT_EQ(error, "kernel32.dll has no D3DCompile");
}

}  // namespace
}  // namespace Veldrift
