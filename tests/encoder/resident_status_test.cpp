#include "encoder/resident_status.h"

#include <gtest/gtest.h>

#include "tests/support/child.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

TEST(ResidentWanted, TheVariableDecidesElseTheTransformsName) {
  struct Case {
    std::optional<std::string> variable;
    const char* name;
    bool wanted;
  };
  const Case cases[] = {
      {"1", "AMD Encoder", true},
      {"0", "NVIDIA HEVC Encoder MFT", false},
      {std::nullopt, "NVIDIA HEVC Encoder MFT", true},
      {std::nullopt, "the Nvidia one", true},
      {std::nullopt, "nvidia", true},
      {std::nullopt, "Intel® Hardware H265 Encoder MFT", true},
      {std::nullopt, "by intel", true},
      {std::nullopt, "INTEL", false},
      {std::nullopt, "nVidia", false},
      {std::nullopt, "AMDh265Encoder", false},
      {std::nullopt, "", false},
      {"10", "AMDh265Encoder", false},
      {"10", "Intel", true},
      {"", "Intel", true},
      {"00", "Intel", true},
      {" 1", "AMDh265Encoder", false},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ResidentWanted(c.variable, c.name), c.wanted)
        << c.variable.value_or("(unset)") << ", " << c.name;
  }
}

TEST(FenceForbidden, OnlyByOne) {
  EXPECT_TRUE(FenceForbidden(std::string("1")));
  for (const char* value : {"", "0", "10", "true"}) {
    EXPECT_FALSE(FenceForbidden(std::string(value))) << value;
  }
  EXPECT_FALSE(FenceForbidden(std::nullopt));
}

TEST(ResidentVariables, DISABLED_AreThoseOfTheProcess) {
  EXPECT_TRUE(ResidentWanted("AMD Encoder"));
  EXPECT_TRUE(FenceForbidden());
  const ScopedEnvironment wanted("VD_GPU_RESIDENT_ENCODE", "0");
  const ScopedEnvironment fence("VD_NO_FENCE", "0");
  EXPECT_TRUE(ResidentWanted("AMD Encoder"));
  EXPECT_TRUE(FenceForbidden());
}

TEST(ResidentVariables, AreReadOnceAProcess) {
  const ScratchFolder folder;
  const ScopedEnvironment wanted("VD_GPU_RESIDENT_ENCODE", "1");
  const ScopedEnvironment fence("VD_NO_FENCE", "1");
  const auto child = StartChild("ResidentVariables.DISABLED_AreThoseOfTheProcess", folder.Path());
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(child->Wait(), 0);
}

constexpr ResidentFacts kAllWell{true, true, true, 1920, 1080};

TEST(ResidentObstacle, IsTheFirstThatApplies) {
  struct Case {
    ResidentFacts facts;
    std::optional<ResidentOutcome> obstacle;
  };
  const Case cases[] = {
      {kAllWell, std::nullopt},
      {{false, false, false, 1921, 1081}, ResidentOutcome::NotWanted},
      {{true, false, false, 1921, 1081}, ResidentOutcome::NoDevice},
      {{true, true, false, 1921, 1081}, ResidentOutcome::TransformNotOnGpu},
      {{true, true, true, 1921, 1080}, ResidentOutcome::OddSize},
      {{true, true, true, 1920, 1081}, ResidentOutcome::OddSize},
  };
  for (const Case& c : cases) EXPECT_EQ(ResidentObstacle(c.facts), c.obstacle);
}

TEST(ResidentStatus, EachOutcomeHasItsText) {
  struct Case {
    ResidentOutcome outcome;
    uint32_t result;
    const char* text;
  };
  const Case cases[] = {
      {ResidentOutcome::NotWanted, 0,
       "off (auto-default is NVIDIA-only; non-NVIDIA encoder or VD_GPU_RESIDENT_ENCODE=0)"},
      {ResidentOutcome::NoDevice, 0, "n/a (no D3D11 device/manager)"},
      {ResidentOutcome::TransformNotOnGpu, 0, "n/a (MFT not on GPU — SET_D3D_MANAGER rejected)"},
      {ResidentOutcome::OddSize, 0, "n/a (odd dimensions)"},
      {ResidentOutcome::NoShader, 0, "fallback (shader compile failed)"},
      {ResidentOutcome::NoUploadTexture, 0, "fallback (BGRA upload texture create failed)"},
      {ResidentOutcome::NoAllocator, 0x80004001,
       "fallback (MFCreateVideoSampleAllocatorEx E_NOTIMPL (0x80004001))"},
      {ResidentOutcome::NoAttributes, 0, "fallback (MFCreateAttributes failed)"},
      {ResidentOutcome::NoMediaType, 0, "fallback (NV12 media type create failed)"},
      {ResidentOutcome::AllocatorRefused, 0x80070057,
       "fallback (InitializeSampleAllocatorEx E_INVALIDARG (0x80070057) — driver likely rejects "
       "UAV-bound NV12)"},
      {ResidentOutcome::Active, 0,
       "ACTIVE (allocator ready; MF_SA_D3D11_AWARE=yes, D3D mgr accepted)"},
  };
  for (const Case& c : cases) EXPECT_EQ(ResidentStatus(c.outcome, c.result, true), c.text);
  EXPECT_EQ(ResidentStatus(ResidentOutcome::Active, 0, false),
            "ACTIVE (allocator ready; MF_SA_D3D11_AWARE=no, D3D mgr accepted)");
}

}  // namespace
}  // namespace Veldrift
