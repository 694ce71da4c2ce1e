// The setup window beside a session that is busy.
#include "net/control_protocol.h"
#include "session/shared_transport.h"
#include "tests/support/gate.h"
#include "tests/support/test_phone.h"
#include "tests/window/setup_fixture.h"

namespace Veldrift {
namespace {

// An instance that takes its time with a phone.
class SlowInstance : public ISessionInstance {
 public:
  void HandleControlCommand(uint8_t, std::span<const std::byte>) override { gate.Pass(); }
  void OnNewClient() override { gate.Pass(); }
  void OnUdpFailures() override {}

  Gate gate;
};

class SetupBesideBusySession : public SetupWindowTest {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(SetupWindowTest::SetUp());
    AddOrUpdateTrustedPeer({"phone-1", "Phone", kToken, ""});
    transport_.Acquire(&instance_);
    transport_.CountRunningInstances(+1);
    ASSERT_NO_FATAL_FAILURE(Open());
    instance_.gate.Shut();
    phone_ = TestPhone::Connect(transport_.ListeningPort());
    ASSERT_TRUE(phone_.Connected());
    phone_.SendHello("phone-1", "Phone", kToken);
    instance_.gate.AwaitSomebody();
  }
  void TearDown() override {
    instance_.gate.Open();
    phone_.Close();
    transport_.CountRunningInstances(-1);
    transport_.Release(&instance_);
    transport_.Shutdown();
    SetupWindowTest::TearDown();
  }
  // False if it waits for somebody.
  bool TickReturns() const {
    DWORD_PTR answer = 0;
    return SendMessageTimeoutW(window_, WM_TIMER, 1, 0, SMTO_NORMAL, 20'000, &answer) != 0;
  }
  // Nor does a host that asks for the window.
  bool ShowReturns() const {
    SetForegroundWindow(GetDesktopWindow());
    ShowSetupDialog();
    return TickReturns();
  }

  const std::string kToken = std::string(64, 'b');
  SharedTransport& transport_ = SharedTransport::Get();
  SlowInstance instance_;
  SocketLayer layer_;
  TestPhone phone_{nullptr};
};

// The greeting and each command run under the lock of the instances; an engine switch is a command.
TEST_F(SetupBesideBusySession, ATickWaitsForNoGreetingAndForNoCommand) {
  ASSERT_TRUE(TickReturns()) << "while a phone is greeted";
  EXPECT_TRUE(ShowReturns());
  EXPECT_EQ(Text(kStatus), L"Streaming");
  EXPECT_EQ(Text(2102), L"127.0.0.1");
  EXPECT_EQ(Shot().At(277, 125), 0x30D158U) << "the dot isn't live";

  instance_.gate.Open();
  ASSERT_TRUE(phone_.NextOf(kPlaybackState).has_value());
  instance_.gate.Shut();
  phone_.SendCommand(kSetEncoderEngine, "\3one");
  instance_.gate.AwaitSomebody();
  ASSERT_TRUE(TickReturns()) << "while a command runs";
  EXPECT_TRUE(ShowReturns());
}

}  // namespace
}  // namespace Veldrift
