// Clients that are no phones, in front of one that is.
#include <gtest/gtest.h>

#include "net/control_protocol.h"
#include "platform/file.h"
#include "tests/stream/stage.h"
#include "tests/support/test_phone.h"
#include "tools/phone/phone_exit.h"
#include "tools/receiver/pairing_log.h"

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
    PairingCodeLog log(stage_.HostLog(), name);
    TestPhone phone = Connect();
    phone.SendHello(name, name);
    std::optional<std::string> code;
    EXPECT_TRUE(Eventually([&] { return (code = log.Find()).has_value(); }));
    phone.SendCommand(kPairingCode, code.value_or(""));
    EXPECT_TRUE(phone.NextOf(kPairAccepted).has_value());
    return phone;
  }

  void ExpectThatAPhoneGetsItsPictures() {
    StandIn& phone = stage_.StartPhone("a", {"--seconds", "2"});
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

TEST_F(Nonsense, CommandsThatEndInTheMiddleChangeNothing) {
  const std::pair<std::string, const char*> rows[] = {
      {std::string(1, char(kSetGopMode)), "control: truncated SetGopMode"},
      {std::string{char(kSetEncoderEngine), 9, 'a', 'b'},
       "control: truncated SetEncoderEngine body"},
      {std::string{char(kAppSettingsSnapshot), 0, 1},
       "control: truncated AppSettingsSnapshot head"},
      {std::string{char(kAppSettingsSnapshot), 0, 1, 1, 3, 2, 8, 'x'},
       "control: truncated AppSettingsSnapshot tail"},
      {std::string{char(kTestMarker), 5, 'a'}, "control: truncated TestMarker body"}};
  for (const auto& [bytes, line] : rows) {
    TestPhone client = Pair("short");
    client.Send(bytes);
    client.Close();
    EXPECT_TRUE(Eventually([&, text = line] { return stage_.CountInHostLog(text) == 1; })) << line;
  }
  EXPECT_EQ(stage_.CountInHostLog("engine seed"), 0U);
  EXPECT_EQ(stage_.CountInHostLog("control: AppSettingsSnapshot resLimit"), 0U);
  ExpectThatAPhoneGetsItsPictures();
}

// An engine's id may be any bytes; what isn't known falls back.
TEST_F(Nonsense, AnEngineThatNobodyHasIsReplacedByOneThatIsThere) {
  TestPhone client = Pair("engine");
  client.SendCommand(kSetEncoderEngine, std::string("\7\0\xFF%s%n\n", 8));
  ASSERT_TRUE(client.NextOf(kCommandAck));
  if (!HostIsWindows()) {  // which takes the best of all without a word
    EXPECT_EQ(stage_.CountInHostLog("has no encoder here — using the software encoder"), 1U);
  }
  client.Close();
  ExpectThatAPhoneGetsItsPictures();
}

// It has paired, watches no more and says nothing: as if it had left the network.
TEST_F(Nonsense, APhoneThatVanishesWithoutAWordMakesRoomForTheNext) {
  const TestPhone vanished = Pair("vanished");
  ExpectThatAPhoneGetsItsPictures();
}

// Under Wine each line in the log takes its time.
const size_t kFloodCommands = HostIsWindows() ? 1'000 : 10'000;

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
