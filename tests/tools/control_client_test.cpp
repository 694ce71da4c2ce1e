#include "tools/receiver/control_client.h"

#include <gtest/gtest.h>

#include <cstring>
#include <future>

#include "net/control_protocol.h"
#include "tests/support/eventually.h"
#include "tests/tools/scripted_plugin.h"

namespace Veldrift {
namespace {

using PairResult = ControlClient::PairResult;
const std::string kHello =
    "\x30\x02id\x04"
    "name";  // without a token: one more zero byte
const PhoneIdentity kPhone{"id", "name", ""};

struct Client {
  explicit Client(const ScriptedPlugin& plugin) {
    std::string error;
    EXPECT_TRUE(client.Connect(plugin.Address(), 0, 5 * kNanosPerSecond, error)) << error;
  }
  PairResult Pair(const PhoneIdentity& phone = kPhone,
                  std::optional<std::string> code = std::nullopt) {
    return client.Pair(
        phone, [code] { return code; }, token);
  }
  ControlClient client;
  std::string token;
};

TEST(ControlClient, ATrustedTokenNeedsNoCode) {
  ScriptedPlugin plugin;
  plugin.Run([](ScriptedPlugin& p) {
    EXPECT_EQ(p.Hear(13), kHello +
                              "\x03"
                              "tok");
    p.Say("\x33\x03tok");
  });
  Client client(plugin);
  EXPECT_EQ(client.Pair({"id", "name", "tok"}), PairResult::Paired);
  EXPECT_EQ(client.token, "tok");
}

TEST(ControlClient, ACodeAnswersAChallengeAndHeartbeatsDontDisturb) {
  ScriptedPlugin plugin;
  plugin.Run([](ScriptedPlugin& p) {
    EXPECT_EQ(p.Hear(10), kHello + std::string(1, '\0'));
    p.Say("\x09\x31\x09");
    EXPECT_EQ(p.Hear(7),
              "\x32"
              "000042");
    p.Say(
        "\x09\x33\x05"
        "fresh");
  });
  Client client(plugin);
  EXPECT_EQ(client.Pair(kPhone, "000042"), PairResult::Paired);
  EXPECT_EQ(client.token, "fresh");
}

TEST(ControlClient, EveryOtherOutcomeOfThePairingIsTold) {
  struct {
    const char* name;
    std::string answer;  // to the hello; a challenge is answered with a code
    std::string verdict;
    bool knowsCode;
    PairResult result;
  } const kCases[] = {
      {"wrong code", "\x31", "\x34", true, PairResult::Rejected},
      {"no code", "\x31", "", false, PairResult::NoCode},
      {"closed at once", "", "", true, PairResult::Closed},
      {"closed after the code", "\x31", "", true, PairResult::Closed},
      {"unknown opcode", "\x41", "", true, PairResult::Violation},
      {"status before pairing", std::string("\x35\x01"), "", true, PairResult::Violation},
      {"challenged twice", "\x31", "\x31", true, PairResult::Violation},
      {"cut off", std::string("\x33\x05") + "fr", "", true, PairResult::Violation},
  };
  for (const auto& each : kCases) {
    SCOPED_TRACE(each.name);
    ScriptedPlugin plugin;
    plugin.Run([each](ScriptedPlugin& p) {
      p.Hear(10);
      if (each.answer.empty()) return;
      p.Say(each.answer);
      if (each.answer != "\x31" || !each.knowsCode) return;
      p.Hear(7);
      if (!each.verdict.empty()) p.Say(each.verdict);
    });
    Client client(plugin);
    const auto code = each.knowsCode ? std::optional<std::string>("123456") : std::nullopt;
    EXPECT_EQ(client.Pair(kPhone, code), each.result);
    EXPECT_EQ(client.client.Violation().empty(), each.result != PairResult::Violation);
    EXPECT_EQ(client.token, "");
  }
}

TEST(ControlClient, StatusMessagesAreReadByTheirShape) {
  ScriptedPlugin plugin;
  plugin.Run([](ScriptedPlugin& p) {
    p.Hear(10);
    p.Say(std::string("\x33\x01t"));
    p.Say(std::string("\x06\x80\x07\x38\x04\x3c\x00\x10\x27\x00\x00", 11));
    p.Say(std::string("\x09\x37\x00", 3));
    p.Say(std::string("\x16\x00\x05\xd0\x02\x00\x00\xf0\x41", 9));
    // Two engines announced, the second cut off in its label.
    p.Say(
        std::string("\x38\x0b\x02\x01"
                    "a\x02"
                    "bb\x00\x01"
                    "c\x09"
                    "d",
                    13));
  });
  Client client(plugin);
  ASSERT_EQ(client.Pair(), PairResult::Paired);
  Mutex mutex;
  CondVar came;
  std::vector<StatusMessage> messages;
  client.client.StartReading([&](const StatusMessage& message) {
    const MutexLock lock(mutex);
    messages.push_back(message);
    came.NotifyAll();
  });
  MutexLock lock(mutex);
  while (messages.size() < 5) came.Wait(lock);
  const auto info = ParseStreamInfo(messages[0]);
  ASSERT_TRUE(info);
  EXPECT_EQ(info->width, 1920);
  EXPECT_EQ(info->height, 1080);
  EXPECT_EQ(info->fps, 60);
  EXPECT_EQ(info->frameByteCap, 10'000U);
  EXPECT_EQ(messages[1].opcode, kHeartbeat);
  EXPECT_EQ(messages[2].opcode, kEncoderInfo);
  EXPECT_EQ(messages[2].Text(), "");
  const auto change = ParseSourceChange(messages[3]);
  ASSERT_TRUE(change);
  EXPECT_EQ(change->width, 1280);
  EXPECT_EQ(change->height, 720);
  EXPECT_EQ(change->fps, 30.0F);
  const std::vector<ReportedEngine> engines = ParseEngineList(messages[4]);
  ASSERT_EQ(engines.size(), 1U);
  EXPECT_EQ(engines[0].id, "a");
  EXPECT_EQ(engines[0].label, "bb");
}

TEST(ControlClient, TellsHowTheConnectionEndedAndWhenItLastHeard) {
  ScriptedPlugin plugin;
  plugin.Run([](ScriptedPlugin& p) {
    p.Hear(10);
    p.Say("\x33\x01t");
    p.Say("\x09");
  });
  Client client(plugin);
  ASSERT_EQ(client.Pair(), PairResult::Paired);
  int64_t beatNs = 0;
  client.client.StartReading([&](const StatusMessage& message) { beatNs = message.timeNs; });
  ASSERT_TRUE(Eventually([&] { return client.client.Ended(); }));
  EXPECT_EQ(client.client.EndText(), "the plug-in closed the connection");
  EXPECT_GT(beatNs, 0);
  EXPECT_LE(client.client.LastHeardNs(), beatNs);
  EXPECT_GT(client.client.LastHeardNs(), beatNs - kNanosPerSecond);
}

TEST(ControlClient, CommandsGoOutAsOneOpcodeAndItsPayload) {
  ScriptedPlugin plugin;
  plugin.Run([](ScriptedPlugin& p) {
    p.Hear(10);
    p.Say(std::string("\x33\x01t"));
    EXPECT_EQ(p.Hear(4), std::string("\x01\x07\xd0\x02"));
  });
  Client client(plugin);
  ASSERT_EQ(client.Pair(), PairResult::Paired);
  EXPECT_TRUE(client.client.Send(kRequestIdr));
  const std::array cap = {std::byte{0xd0}, std::byte{0x02}};
  EXPECT_TRUE(client.client.Send(kSetMaxResolution, cap));
}

TEST(ControlClient, DisconnectEndsAPairingThatWaits) {
  ScriptedPlugin plugin;
  std::promise<void> heard;
  plugin.Run([&heard](ScriptedPlugin& p) {
    p.Hear(10);
    heard.set_value();
    p.WaitForEnd();
  });
  Client client(plugin);
  std::thread other([&] {
    heard.get_future().wait();
    client.client.Disconnect();
  });
  EXPECT_EQ(client.Pair(), PairResult::Closed);
  other.join();
}

TEST(ControlClient, NobodyThereIsTold) {
  const SocketLayer layer;
  const uint16_t port = ListenTcp(0, *ParseAddress("127.0.0.1"))->Port();
  ControlClient client;
  std::string error;
  EXPECT_FALSE(client.Connect({*ParseAddress("127.0.0.1"), port}, 0, kNanosPerSecond, error));
  EXPECT_FALSE(error.empty());
}

}  // namespace
}  // namespace Veldrift
