// The host's sibling module is asked for a frame. It may have to wait for the host's main thread,
// which may be making or disposing of an instance just then.
#include <filesystem>
#include <thread>

#include "platform/file.h"
#include "platform/system.h"
#include "support/control_bridge.h"
#include "tests/session/session_fixture.h"
#include "tests/support/child.h"
#include "tests/support_layer/sibling/sibling.h"
#include "tools/platform/module_loader.h"

namespace Veldrift {
namespace {

class SiblingNudge : public SessionFixture {
 protected:
  // What the sibling waits for.
  static inline SiblingNudge* test = nullptr;
  static void AwaitHost() {
    test->host = std::thread([] {
      { const TransmitInstance other(FakeHost::Suites(), test->Services()); }
      test->hostCameThrough = true;
    });
    test->waited = Eventually([] { return test->hostCameThrough.load(); });
  }

  std::thread host;
  std::atomic<bool> hostCameThrough{false};
  std::atomic<bool> waited{false};
};

// Once found, a sibling stays found for the rest of its process.
TEST_F(SiblingNudge, DISABLED_WhileAnInstanceComesAndGoes) {
  std::string error;
  const auto path = GetExecutablePath().parent_path() / "scripted-sibling" /
                    BridgeModuleName(HostApplication::Premiere);
  static const std::unique_ptr<LoadedModule> module = LoadModule(path, error);
  ASSERT_NE(module, nullptr) << error;
  VdTestSibling& sibling =
      *reinterpret_cast<VdTestSibling* (*)()>(module->FindSymbol("vd_test_sibling"))();
  test = this;
  sibling.inside = AwaitHost;
  StartSession();
  if (host.joinable()) host.join();
  EXPECT_TRUE(waited) << "held up by the nudge";
  EXPECT_EQ(sibling.calls, 1);
  EXPECT_EQ(sibling.lastOperation, int32_t(BridgeOperation::NewClientNudge));
  WriteWholeFile(ChildFolder() / "nudged", "");
}

TEST(SiblingNudges, HoldNoThreadOfTheHostsUp) {
  const ScratchFolder folder;
  const auto child = StartChild("SiblingNudge.DISABLED_WhileAnInstanceComesAndGoes", folder.Path());
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(child->Wait(), 0);
  EXPECT_TRUE(std::filesystem::exists(folder.Path() / "nudged"));
}

}  // namespace
}  // namespace Veldrift
