#include "net/pairing_handshake.h"

#include <gtest/gtest.h>

#include <thread>

#include "identity/trusted_peers.h"
#include "net/control_protocol.h"
#include "tests/support/scratch.h"
#include "tests/support/test_phone.h"

namespace Veldrift {
namespace {

// A phone and the handshake's side of one real connection.
class PairingHandshake : public testing::Test {
 protected:
  void SetUp() override {
    listener = ListenTcp(0);
    ASSERT_TRUE(listener);
    Connect();
  }

  void TearDown() override { Finish(); }

  // A new connection, as after a refusal.
  void Connect() {
    Finish();
    phone = TestPhone::Connect(listener->Port());
    ASSERT_TRUE(phone.Connected());
    connection =
        std::make_shared<ControlConnection>(listener->Accept(5 * kNanosPerSecond), SystemClock());
    handshake = std::thread([this] {
      result = DoPairingHandshake(connection, ShowTo(shown));
      connection->Disconnect();
    });
  }

  // What the handshake answered.
  std::string Finish() {
    if (handshake.joinable()) {
      handshake.join();
      connection.reset();
    }
    return result;
  }

  std::string FinishAfter(std::string_view bytes) {
    phone.Send(bytes);
    phone.Close();
    return Finish();
  }

  SocketLayer layer;
  std::unique_ptr<StreamListener> listener;
  std::shared_ptr<ControlConnection> connection;
  TestPhone phone{nullptr};
  std::shared_ptr<ShownCode> shown = std::make_shared<ShownCode>();
  std::thread handshake;
  std::string result;
};

std::string Hello(std::string_view id, std::string_view name, std::string_view token) {
  std::string bytes(1, char(kClientHello));
  for (const std::string_view text : {id, name, token}) {
    bytes += char(text.size());
    bytes += text;
  }
  return bytes;
}

TEST_F(PairingHandshake, TheRightCodeGivesATokenThatIsKept) {
  const std::string token = PairByCode(phone, *shown, "phone-a");
  EXPECT_EQ(token.size(), 64U);
  EXPECT_EQ(Finish(), token);
  const auto peer = FindTrustedPeer("phone-a");
  ASSERT_TRUE(peer);
  EXPECT_EQ(peer->token, token);
  EXPECT_EQ(peer->name, "Test phone");
  EXPECT_EQ(peer->firstPaired.size(), 20U);
  EXPECT_EQ(peer->firstPaired.back(), 'Z');
  EXPECT_EQ(shown->closed, 1);
}

TEST_F(PairingHandshake, ATrustedPhoneComesBackWithoutADialog) {
  AddOrUpdateTrustedPeer({"phone-b", "B", "secret", "2026-01-01T00:00:00Z"});
  phone.SendHello("phone-b", "renamed", "secret");
  const auto reply = phone.Next();
  ASSERT_TRUE(reply);
  EXPECT_EQ(reply->opcode, kPairAccepted);
  EXPECT_EQ(reply->payload, std::string("\x06") + "secret");
  EXPECT_EQ(Finish(), "secret");
  EXPECT_EQ(shown->closed, 0);
  EXPECT_EQ(FindTrustedPeer("phone-b")->name, "B");
}

TEST_F(PairingHandshake, AnyOtherTokenIsChallenged) {
  AddOrUpdateTrustedPeer({"phone-c", "C", "secret", "2026-01-01T00:00:00Z"});
  for (const auto& [id, token] : {std::pair{"phone-c", "secreT"}, std::pair{"phone-c", "secret2"},
                                  std::pair{"stranger", "secret"}}) {
    phone.SendHello(id, "", token);
    const auto reply = phone.Next();
    ASSERT_TRUE(reply) << id;
    EXPECT_EQ(reply->opcode, kPairChallenge) << id;
    phone.Close();
    EXPECT_EQ(Finish(), "");
    Connect();
  }
  phone.Close();
}

TEST_F(PairingHandshake, AWrongCodeCostsTheConnectionAndTheNextOneHasANewCode) {
  phone.SendHello("phone-d", "D");
  ASSERT_TRUE(phone.NextOf(kPairChallenge));
  std::string wrong = shown->Take();
  wrong[5] = wrong[5] == '9' ? '0' : char(wrong[5] + 1);
  phone.SendCommand(kPairingCode, wrong);
  EXPECT_EQ(phone.Next()->opcode, kPairRejected);
  EXPECT_EQ(Finish(), "");
  EXPECT_TRUE(phone.SeesTheEnd());
  EXPECT_FALSE(FindTrustedPeer("phone-d"));
  EXPECT_EQ(CountInPluginLog("pair: code mismatch submitted=" + wrong), 1U);
}

TEST_F(PairingHandshake, AnotherMessageInsteadOfTheCodeIsRejected) {
  phone.SendHello("phone-e", "E");
  ASSERT_TRUE(phone.NextOf(kPairChallenge));
  phone.SendCommand(kSetCodec, "1");
  EXPECT_EQ(phone.Next()->opcode, kPairRejected);
  EXPECT_EQ(Finish(), "");
  EXPECT_EQ(CountInPluginLog("pair: expected PairingCode, got 0x05 — dropping"), 1U);
}

TEST_F(PairingHandshake, CancelInTheDialogEndsTheWaitAtOnce) {
  phone.SendHello("phone-f", "F");
  ASSERT_TRUE(phone.NextOf(kPairChallenge));
  shown->Take();
  std::function<void()> cancel;
  {
    MutexLock lock(shown->mutex);
    cancel = shown->cancel;
  }
  cancel();
  EXPECT_EQ(Finish(), "");
  EXPECT_FALSE(phone.Next());  // no reply
  EXPECT_EQ(shown->closed, 1);
  cancel();  // late: the connection is gone, and nothing happens
}

TEST_F(PairingHandshake, EveryCutOffHelloAndCodeEndsWithoutAReply) {
  const std::string hello = Hello("phone-g", "G", "token");
  const size_t silent = CountInPluginLog("pair: client disconnected before Hello");
  const size_t malformed = CountInPluginLog("pair: malformed ClientHello");
  for (size_t length = 0; length < hello.size(); ++length) {
    EXPECT_EQ(FinishAfter(hello.substr(0, length)), "") << length;
    Connect();
  }
  EXPECT_EQ(CountInPluginLog("pair: client disconnected before Hello"), silent + 1);
  EXPECT_EQ(CountInPluginLog("pair: malformed ClientHello"), malformed + hello.size() - 1);
  const std::string code = std::string(1, char(kPairingCode)) + "12345";
  for (size_t length = 0; length <= code.size(); ++length) {
    EXPECT_EQ(FinishAfter(hello + code.substr(0, length)), "") << length;
    Connect();
  }
  EXPECT_EQ(CountInPluginLog("pair: truncated PairingCode"), code.size());
  phone.Close();
}

TEST_F(PairingHandshake, LimitsOfTheHello) {
  const auto text = [](size_t length) { return std::string(length, 'x'); };
  struct Row {
    std::string hello;
    const char* line;
  };
  const Row rows[] = {
      {Hello(text(65), "", ""), "pair: malformed ClientHello"},
      {Hello("i", text(129), ""), "pair: malformed ClientHello"},
      {Hello("i", "", text(129)), "pair: malformed ClientHello"},
      {Hello("", "n", ""), "pair: empty iPhone UUID"},
      {std::string(1, char(kSetCodec)), "pair: expected ClientHello, got 0x05 — dropping"},
      {Hello(text(64), text(128), text(128)), "pair: token present but not trusted — challenging"},
  };
  for (const Row& row : rows) {
    const size_t before = CountInPluginLog(row.line);
    EXPECT_EQ(FinishAfter(row.hello), "");
    EXPECT_EQ(CountInPluginLog(row.line), before + 1) << row.line;
    Connect();
  }
  phone.Close();
}

TEST_F(PairingHandshake, TheTokenNeverReachesTheLog) {
  phone.SendHello("phone-h", "H", "a-very-secret-token");
  ASSERT_TRUE(phone.NextOf(kPairChallenge));
  phone.Close();
  Finish();
  EXPECT_EQ(CountInPluginLog("a-very-secret-token"), 0U);
  EXPECT_EQ(CountInPluginLog("Hello from id=phone-h name=H token=<present>"), 1U);
}

}  // namespace
}  // namespace Veldrift
