#include "support/control_bridge.h"

#include <gtest/gtest.h>

#include "platform/system.h"
#include "tests/support_layer/sibling/sibling.h"
#include "tools/platform/module_loader.h"

namespace Veldrift {
namespace {

TEST(ControlBridge, OnlyAfterEffectsHasASiblingOfItsOwn) {
  EXPECT_STREQ(BridgeModuleName(HostApplication::AfterEffects), "VeldriftAE.aex");
  for (const HostApplication host :
       {HostApplication::Premiere, HostApplication::MediaEncoder, HostApplication::UnknownHost}) {
    EXPECT_STREQ(BridgeModuleName(host), "VeldriftCtrl.acsrf");
  }
}

// In one test: once found, the sibling stays found for the rest of the process.
TEST(ControlBridge, TheSiblingIsUsedFromItsAppearanceOnWhereItsTableFits) {
  EXPECT_FALSE(CallCtrlBridge(BridgeOperation::PlayPause));

  std::string error;
  // Stays loaded, as the cached address demands.
  static const std::unique_ptr<LoadedModule> module =
      LoadModule(GetExecutablePath().parent_path() / "scripted-sibling" /
                     BridgeModuleName(HostApplication::Premiere),
                 error);
  ASSERT_NE(module, nullptr) << error;
  VdTestSibling& sibling =
      *reinterpret_cast<VdTestSibling* (*)()>(module->FindSymbol("vd_test_sibling"))();
  EXPECT_TRUE(CallCtrlBridge(BridgeOperation::ShuttleForward));
  EXPECT_EQ(sibling.lastOperation, 9);
  EXPECT_TRUE(CallCtrlBridge(BridgeOperation::NewClientNudge));
  EXPECT_EQ(sibling.lastOperation, 10);

  const VdTestSibling before = sibling;
  const std::pair<const char*, VdTestSibling> refused[] = {{"another version", {.version = 2}},
                                                           {"no table", {.handsOutTable = false}},
                                                           {"no function", {.hasInvoke = false}}};
  for (const auto& [what, state] : refused) {
    sibling = state;
    EXPECT_FALSE(CallCtrlBridge(BridgeOperation::PlayPause)) << what;
    EXPECT_EQ(sibling.calls, 0) << what;
  }
  sibling = before;
  sibling.status = 7;  // it was asked, and couldn't
  EXPECT_FALSE(CallCtrlBridge(BridgeOperation::PlayPause));
  EXPECT_EQ(sibling.lastOperation, 0);
  sibling.status = 0;
  EXPECT_TRUE(CallCtrlBridge(BridgeOperation::PlayPause));
}

}  // namespace
}  // namespace Veldrift
