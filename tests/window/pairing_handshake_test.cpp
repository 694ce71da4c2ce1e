// The handshake with its real window: a phone, the code on the screen, and the user's Cancel.
#include <thread>

#include "net/control_protocol.h"
#include "net/pairing_handshake.h"
#include "tests/support/test_phone.h"
#include "tests/window/pairing_fixture.h"
#include "tests/window/user_hands.h"

namespace Veldrift {
namespace {

class PairingOnScreen : public PairingWindowTest {
 protected:
  void SetUp() override {
    listener_ = ListenTcp(0);
    ASSERT_TRUE(listener_);
    phone_ = TestPhone::Connect(listener_->Port());
    ASSERT_TRUE(phone_.Connected());
    connection_ =
        std::make_shared<ControlConnection>(listener_->Accept(5 * kNanosPerSecond), SystemClock());
    handshake_ = std::thread([this] {
      token_ = DoPairingHandshake(connection_, CreatePairingDialog);
      connection_->Disconnect();
    });
    phone_.SendHello("phone-1", "Jürgen & Söhne");
    window_ = AwaitOurWindow(kPairingKind);
    ASSERT_NE(window_, nullptr);
    Settle(window_);
  }
  void TearDown() override { Finish(); }
  std::string Finish() {
    if (handshake_.joinable()) handshake_.join();
    return token_;
  }
  std::string CodeOnScreen() {
    std::string code = NarrowText(TextOf(Item(kCode)));
    std::erase(code, ' ');
    return code;
  }

  SocketLayer layer_;
  std::unique_ptr<StreamListener> listener_;
  std::shared_ptr<ControlConnection> connection_;
  TestPhone phone_{nullptr};
  std::thread handshake_;
  std::string token_;
};

TEST_F(PairingOnScreen, TheCodeThatItShowsPairsThePhoneAndEndsIt) {
  EXPECT_EQ(TextOf(Item(kPrompt)), L"Enter this code on Jürgen & Söhne:");
  const std::string code = CodeOnScreen();
  EXPECT_EQ(code.size(), kPairingCodeDigits);
  phone_.Send(std::string(1, char(kPairingCode)) + code);
  EXPECT_FALSE(Finish().empty());
  EXPECT_FALSE(IsWindow(window_));
}

TEST_F(PairingOnScreen, AClickOnCancelEndsTheHandshakeAtOnce) {
  Click(Item(kCancel));
  EXPECT_EQ(Finish(), "");
  EXPECT_TRUE(phone_.SeesTheEnd());
  EXPECT_FALSE(IsWindow(window_));
}

TEST_F(PairingOnScreen, APhoneThatGoesTakesItAway) {
  phone_.Close();
  EXPECT_EQ(Finish(), "");
  EXPECT_FALSE(IsWindow(window_));
}

}  // namespace
}  // namespace Veldrift
