#include "net/network_transport.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "net/control_protocol.h"
#include "net/media_datagram.h"
#include "tests/support/eventually.h"
#include "tests/support/manual_clock.h"
#include "tests/support/scratch.h"
#include "tests/support/test_phone.h"
#include "tools/platform/client_sockets.h"

namespace Veldrift {
namespace {

class NetworkTransportTest : public testing::Test {
 protected:
  void SetUp() override {
    TransportCallables callables;
    callables.onCommand = [this](uint8_t opcode, std::span<const std::byte>) {
      lastCommand = opcode;
    };
    callables.onNewClient = [this] {
      ++newClients;
      if (duringGreeting) duringGreeting();
    };
    callables.onIdrRequest = [this] { ++idrRequests; };
    callables.anyInstanceRunning = [this] {
      const bool running = instanceRunning;
      ++asked;
      if (startBehindAnswer.exchange(false)) LetAnInstanceStart();
      return running;
    };
    callables.createPairingDialog = ShowTo(shown);
    transport.SetCallables(std::move(callables));
    transport.StartListening(0);
    ASSERT_TRUE(Eventually([&] { return transport.ListeningPort() != 0; }));
  }

  TestPhone Connect(const std::string& from = "127.0.0.1") {
    TestPhone phone = TestPhone::Connect(transport.ListeningPort(), from);
    EXPECT_TRUE(phone.Connected());
    return phone;
  }

  TestPhone ConnectAndPair(const std::string& from = "127.0.0.1") {
    TestPhone phone = Connect(from);
    EXPECT_FALSE(PairByCode(phone, *shown).empty());
    EXPECT_TRUE(phone.NextOf(kTransmitState));
    return phone;
  }

  // A connection that doesn't pair holds the next one up for a second.
  void LetASecondPass() { clock.Advance(kNanosPerSecond); }

  // An instance starts between a thread's question and what it makes of the answer, and the poll
  // comes by; it can't have its say before that thread has, but is given the time.
  void LetAnInstanceStart() {
    instanceRunning = true;
    clock.Advance(kNanosPerSecond);
    const int before = asked;
    for (int i = 0; i < 50 && asked == before; ++i) SystemClock().SleepFor(kNanosPerMilli);
  }

  bool SendByte(uint8_t opcode) {
    const std::byte one{1};
    return transport.SendControl(opcode, {&one, 1});
  }

  bool SendMedia() {
    const std::byte payload{42};
    return transport.SendDatagram({&payload, 1}, kVideoPort);
  }

  SocketLayer layer;
  ManualClock clock;
  std::shared_ptr<ShownCode> shown = std::make_shared<ShownCode>();
  std::atomic<int> lastCommand{-1}, newClients{0}, idrRequests{0};
  std::atomic<bool> instanceRunning{false};
  std::function<void()> duringGreeting;
  std::atomic<bool> startBehindAnswer{false};
  std::atomic<int> asked{0};
  NetworkTransport transport{clock};
};

TEST_F(NetworkTransportTest, NothingButPairingPassesUntilAPhoneHasPaired) {
  EXPECT_FALSE(SendMedia());
  EXPECT_FALSE(SendByte(kPairChallenge));  // nobody is there
  TestPhone phone = Connect();
  phone.SendHello("a-stranger", "stranger");
  ASSERT_EQ(phone.Next()->opcode, kPairChallenge);
  EXPECT_FALSE(transport.PeerKnown());
  EXPECT_FALSE(SendByte(kAudioState));
  EXPECT_FALSE(SendMedia());
  EXPECT_EQ(transport.PeerAddressText(), "");
  ASSERT_TRUE(transport.SendControl(kPairRejected, {}));
  EXPECT_EQ(phone.Next()->opcode, kPairRejected) << "and nothing before it";
  (void)shown->Take();

  LetASecondPass();
  TestPhone paired = ConnectAndPair("127.0.1.9");
  EXPECT_TRUE(transport.PeerKnown());
  EXPECT_EQ(transport.PeerAddressText(), "127.0.1.9");
  EXPECT_EQ(newClients, 1);
  EXPECT_TRUE(SendByte(kAudioState));
  EXPECT_TRUE(paired.NextOf(kAudioState));
  EXPECT_TRUE(SendMedia());
  paired.SendCommand(kRequestIdr);
  EXPECT_TRUE(Eventually([&] { return lastCommand == kRequestIdr; }));
}

TEST_F(NetworkTransportTest, DatagramsGoToThePairedPhoneAlone) {
  std::byte received[16];
  TestPhone phone = ConnectAndPair("127.0.1.9");
  {
    const auto media = OpenDatagramReceiver({*ParseAddress("127.0.1.9"), kVideoPort}, 1 << 16);
    ASSERT_TRUE(media) << ErrorText();
    ASSERT_TRUE(SendMedia());
    EXPECT_EQ(media->Receive(received, 10 * kNanosPerSecond), 1);
  }
  // Not beside the first: Wine gives a port to one socket only, whatever its address.
  const auto media = OpenDatagramReceiver({*ParseAddress("127.0.1.10"), kVideoPort}, 1 << 16);
  ASSERT_TRUE(media) << ErrorText();
  TestPhone stranger = Connect("127.0.1.10");
  ASSERT_TRUE(Eventually([&] { return !transport.PeerKnown(); }));
  EXPECT_FALSE(SendMedia());
  EXPECT_FALSE(SendByte(kStreamInfo));
  EXPECT_LT(media->Receive(received, 0), 0);
  EXPECT_TRUE(phone.SeesTheEnd());
}

TEST_F(NetworkTransportTest, ANewcomerReplacesThePhoneAndTheNextOneGetsIn) {
  const size_t replaced = CountInPluginLog("Replaced old client fd=");
  const size_t stale = CountInPluginLog("stale (current=");
  const size_t exits = CountInPluginLog("HeartbeatLoop: EXIT fd=");
  TestPhone first = ConnectAndPair();
  TestPhone second = Connect();
  EXPECT_TRUE(first.SeesTheEnd());
  EXPECT_EQ(CountInPluginLog("Replaced old client fd="), replaced + 1);
  EXPECT_TRUE(Eventually([&] { return CountInPluginLog("stale (current=") == stale + 1; }));
  EXPECT_TRUE(Eventually([&] { return CountInPluginLog("HeartbeatLoop: EXIT fd=") > exits; }));
  second.Send("garbage");
  EXPECT_TRUE(second.SeesTheEnd());
  LetASecondPass();
  TestPhone third = ConnectAndPair();
  EXPECT_TRUE(transport.PeerKnown());
  third.Close();
  EXPECT_TRUE(Eventually([&] { return !transport.PeerKnown(); }));
}

TEST_F(NetworkTransportTest, AGreetingThatIsOvertakenDoesNotReachTheNewcomer) {
  TestPhone newcomer{nullptr};
  std::atomic<int> sent{-1};
  duringGreeting = [&] {
    newcomer = Connect();
    EXPECT_TRUE(Eventually([&] { return !transport.PeerKnown(); }));
    sent = SendByte(kAudioState) ? 1 : 0;
  };
  TestPhone first = Connect();
  first.SendHello("phone-1", "first");
  ASSERT_TRUE(first.NextOf(kPairChallenge));
  first.SendCommand(kPairingCode, shown->Take());
  EXPECT_TRUE(first.SeesTheEnd());
  ASSERT_TRUE(Eventually([&] { return sent >= 0; }));
  EXPECT_EQ(sent, 0);
  // The newcomer sees its own pairing and nothing before it.
  newcomer.SendHello("phone-2", "newcomer");
  const auto message = newcomer.Next();
  ASSERT_TRUE(message);
  EXPECT_EQ(message->opcode, kPairChallenge);
  newcomer.Close();
}

TEST_F(NetworkTransportTest, HeartbeatsGoOutOnceASecondFromTheConnectionOn) {
  const size_t before = CountInPluginLog("HeartbeatLoop: START");
  TestPhone phone = Connect();
  ASSERT_TRUE(Eventually([&] { return CountInPluginLog("HeartbeatLoop: START") > before; }));
  for (int tick = 0; tick < 3; ++tick) {
    clock.Advance(kNanosPerSecond);
    std::byte heartbeat{};
    ASSERT_EQ(phone.Socket().Receive({&heartbeat, 1}), 1);
    EXPECT_EQ(heartbeat, std::byte{kHeartbeat});
  }
}

TEST_F(NetworkTransportTest, FiveFailuresInARowAskForAKeyFrameOnce) {
  TestPhone phone = ConnectAndPair();
  // No system takes a datagram of this length.
  const std::vector<std::byte> tooLong(70'000);
  const auto fail = [&] { EXPECT_FALSE(transport.SendDatagram(tooLong, kVideoPort)); };
  for (int i = 0; i < 4; ++i) fail();
  EXPECT_TRUE(SendMedia());
  for (int i = 0; i < 4; ++i) fail();
  EXPECT_EQ(idrRequests, 0);
  for (int i = 0; i < 6; ++i) fail();
  EXPECT_EQ(idrRequests, 1);
}

TEST_F(NetworkTransportTest, ActiveIsToldAtOnceAndInactiveAfterThreePolls) {
  TestPhone phone = Connect();
  ASSERT_FALSE(PairByCode(phone, *shown).empty());
  EXPECT_EQ(phone.NextOf(kTransmitState)->payload, std::string(1, '\0'));
  const auto advanceOnePoll = [&](const char* line, size_t count) {
    return Eventually([&] {
      clock.Advance(100 * kNanosPerMilli);
      return CountInPluginLog(line) >= count;
    });
  };
  instanceRunning = true;
  ASSERT_TRUE(advanceOnePoll("transmit: edge inactive → active", 1));
  EXPECT_EQ(phone.NextOf(kTransmitState)->payload, "\x01");
  instanceRunning = false;
  ASSERT_TRUE(advanceOnePoll("transmit: edge active → inactive after 3 ticks", 1));
  EXPECT_EQ(phone.NextOf(kTransmitState)->payload, std::string(1, '\0'));
}

TEST_F(NetworkTransportTest, APhoneThatStopsReadingHoldsNobodyUpAndIsEnded) {
  TestPhone phone = ConnectAndPair();
  const std::vector<std::byte> payload(200);
  // Fills both kernel buffers without ever waiting; then 5 s pass.
  int sent = 0;
  while (transport.SendControl(kEncoderInfo, payload)) {
    if (++sent % 1'000 == 0) clock.Advance(100 * kNanosPerMilli);
    ASSERT_LT(sent, 10'000'000);
  }
  EXPECT_TRUE(Eventually([&] { return !transport.PeerKnown(); }));
  TestPhone next = ConnectAndPair();
  EXPECT_TRUE(transport.PeerKnown());
}

// The stream of a phone that pauses reading and goes on is not torn, and nothing waits for the next
// message.
TEST_F(NetworkTransportTest, APhoneThatReadsOnGetsEverythingInOrder) {
  constexpr int kMessages = 12'000;
  TestPhone phone = ConnectAndPair();
  const auto payload = [](int i) {
    std::string text(200, char('a' + i % 26));
    text.replace(0, 5, std::to_string(10'000 + i));
    return std::string(1, char(text.size())) + text;
  };
  for (int i = 0; i < kMessages; ++i) {
    const std::string message = payload(i);
    ASSERT_TRUE(transport.SendControl(kEncoderInfo, std::as_bytes(std::span(message)))) << i;
  }
  for (int i = 0; i < kMessages; ++i) ASSERT_EQ(phone.Next()->payload, payload(i)) << i;
  EXPECT_TRUE(transport.PeerKnown());
}

// At one attempt a second a code of six digits is safe for days.
TEST_F(NetworkTransportTest, AConnectionThatDidNotPairHoldsTheNextOneUpForASecond) {
  std::atomic<bool> guessing{true};
  std::thread time([&] {
    while (guessing) {
      clock.Advance(20 * kNanosPerMilli);
      SystemClock().SleepFor(kNanosPerMilli);
    }
  });
  const int64_t start = clock.NowNanos();
  for (int i = 0; i < 5; ++i) {
    TestPhone guesser = Connect();
    guesser.SendHello("guesser", "guesser");
    EXPECT_TRUE(guesser.NextOf(kPairChallenge));
    (void)shown->Take();
  }
  EXPECT_GE(clock.NowNanos() - start, 4 * kNanosPerSecond);
  guessing = false;
  time.join();
  // Behind a phone that has paired the next one comes at once: here no time passes any more.
  LetASecondPass();
  for (int i = 0; i < 3; ++i) TestPhone phone = ConnectAndPair();
}

// The greeting decides on "inactive" while an instance starts and the poll comes by.
TEST_F(NetworkTransportTest, TheTransmitStateThatThePhoneIsLeftWithIsTheLatest) {
  const std::string edge = "transmit: edge inactive → active";
  const size_t edges = CountInPluginLog(edge);
  duringGreeting = [&] { startBehindAnswer = true; };
  TestPhone phone = Connect();
  ASSERT_FALSE(PairByCode(phone, *shown).empty());
  ASSERT_TRUE(Eventually([&] {
    clock.Advance(100 * kNanosPerMilli);
    return CountInPluginLog(edge) > edges;
  }));
  EXPECT_EQ(phone.NextOf(kTransmitState)->payload, std::string(1, '\0'));
  EXPECT_EQ(phone.NextOf(kTransmitState)->payload, "\x01");
}

TEST_F(NetworkTransportTest, StopEndsTheConnectionAndMayBeRepeatedAndUndone) {
  const std::string edge = "transmit: edge inactive → active";
  instanceRunning = true;
  TestPhone phone = ConnectAndPair();  // is told "active"
  const size_t edges = CountInPluginLog(edge);
  transport.Stop();
  EXPECT_TRUE(phone.SeesTheEnd());
  EXPECT_FALSE(transport.PeerKnown());
  EXPECT_EQ(transport.ListeningPort(), 0);
  transport.Stop();
  transport.StartListening(0);
  ASSERT_TRUE(Eventually([&] { return transport.ListeningPort() != 0; }));
  // Nobody has been told anything yet.
  EXPECT_TRUE(Eventually([&] {
    clock.Advance(100 * kNanosPerMilli);
    return CountInPluginLog(edge) > edges;
  }));
  TestPhone again = ConnectAndPair();
  EXPECT_TRUE(transport.PeerKnown());
}

TEST(NetworkTransportPort, APortInUseIsLoggedAndTheRestGoesOn) {
  SocketLayer layer;
  const auto taken = ListenTcp(0);
  ASSERT_TRUE(taken);
  NetworkTransport transport;
  transport.StartListening(taken->Port());
  const std::string line = "CreateTcpListener(:" + std::to_string(taken->Port()) + ") failed: ";
  EXPECT_TRUE(Eventually([&] { return CountInPluginLog(line) == 1; }));
  transport.Stop();
}

TEST(NetworkTransportSelfTest, EveryTestPassesAndUnknownNamesFail) {
  SocketLayer layer;
  std::string result;
  for (const char* id : {"P0.1", "P0.3", "P0.4", "P2.1", "P6.1"}) {
    EXPECT_TRUE(NetworkTransport::RunSelfTest(id, result)) << id << ": " << result;
  }
  EXPECT_EQ(result.find("pacer @0.5Mbps drained 1400B frag in "), 0U);
  EXPECT_FALSE(NetworkTransport::RunSelfTest("P9.9", result));
  EXPECT_EQ(result, "unknown self-test id 'P9.9'");
}

}  // namespace
}  // namespace Veldrift
