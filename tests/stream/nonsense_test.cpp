// Clients that are no phones, in front of one that is.
#include <gtest/gtest.h>

#include "net/control_protocol.h"
#include "platform/file.h"
#include "tests/stream/stage.h"
#include "tests/support/test_phone.h"
#include "tools/phone/exit_codes.h"
#include "tools/receiver/pairing_code_log.h"

namespace Veldrift {
namespace {

// A connection that doesn't read is dead after 5 s; no push may have waited for that. The rest is
// room for a busy machine.
constexpr double kLongestPushMicros = 4e6;

class Nonsense : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NO_FATAL_FAILURE(stage_.StartHost()); }

  TestPhone Connect() { return TestPhone::Connect(stage_.ControlPort(), stage_.NewAddress()); }

  TestPhone Pair(const std::string& name) {
    const PairingCodeLog log(stage_.HostLog(), name);
    TestPhone phone = Connect();
    phone.SendHello(name, name);
    std::optional<std::string> code;
    EXPECT_TRUE(Eventually([&] { return (code = log.Find()).has_value(); }));
    phone.SendCommand(kPairingCode, code.value_or(""));
    EXPECT_TRUE(phone.NextOf(kPairAccepted).has_value());
    return phone;
  }

  void ExpectThatAPhoneGetsItsPictures() {
    Child& phone = stage_.StartPhone("a", {"--seconds", "2"});
    EXPECT_EQ(phone.Wait(), kExitGood) << testing::PrintToString(phone.Complaints());
    ExpectGoodPictures(phone.Summary());
    const nlohmann::json host = stage_.EndHost();
    EXPECT_LT(host["push_longest_us"], kLongestPushMicros);
  }

  const SocketLayer sockets_;
  Stage stage_;
};

TEST_F(Nonsense, GarbageIsCutOff) {
  for (const std::string& garbage :
       {std::string(4096, '\xFF'), std::string(4096, '\0'), std::string("GET / HTTP/1.1\r\n\r\n"),
        std::string("\x30\xFF") + std::string(600, 'x')}) {
    TestPhone client = Connect();
    ASSERT_TRUE(client.Connected());
    client.Send(garbage);
    EXPECT_TRUE(client.SeesTheEnd());
  }
  ExpectThatAPhoneGetsItsPictures();
}

TEST_F(Nonsense, SilenceHoldsNobodyUp) {
  TestPhone silent = Connect();
  ASSERT_TRUE(silent.Connected());
  TestPhone half = Connect();  // the head of a hello, and no more
  ASSERT_TRUE(half.Connected());
  half.Send("\x30\x05");
  ExpectThatAPhoneGetsItsPictures();
}

constexpr size_t kFloodCommands = 10'000;

// Sends commands that are answered, and others in between, and reads no answer.
void Flood(TestPhone& client) {
  std::string text;
  for (size_t i = 0; i < kFloodCommands; ++i) {
    text += {char(kSetGopMode), char(3), char(kRequestIdr)};
  }
  client.Send(text);
}

TEST_F(Nonsense, AFloodOfCommandsWhoseAnswersNobodyReadsStallsNoPush) {
  TestPhone client = Pair("flood");
  Flood(client);
  EXPECT_TRUE(Eventually(
      [&] { return stage_.CountInHostLog("IDR requested by client") >= kFloodCommands; }));
  ExpectThatAPhoneGetsItsPictures();
}

}  // namespace
}  // namespace Veldrift
