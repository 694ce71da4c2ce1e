// Media Foundation and COM for the whole run.
#include <gtest/gtest.h>
#include <mfapi.h>
#include <objbase.h>
#include <windows.h>

namespace {

class PlatformEnvironment final : public testing::Environment {
 public:
  void SetUp() override {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    ASSERT_TRUE(SUCCEEDED(MFStartup(MF_VERSION, MFSTARTUP_LITE)));
  }
  void TearDown() override {
    MFShutdown();
    CoUninitialize();
  }
};

[[maybe_unused]] const auto* const registered =
    testing::AddGlobalTestEnvironment(new PlatformEnvironment);

}  // namespace
