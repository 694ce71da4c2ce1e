// Every message on docs/protocol.md's page, made and read by both sides.
#include <functional>
#include <future>
#include <iomanip>
#include <map>
#include <set>
#include <sstream>

#include "identity/trusted_peers.h"
#include "net/control_reader.h"
#include "tests/session/session_fixture.h"
#include "tests/support/document.h"
#include "tools/platform/client_sockets.h"
#include "tools/receiver/commands.h"
#include "tools/receiver/control_client.h"

namespace Veldrift {
namespace {

constexpr const char* kPairing = "### Pairing";
constexpr const char* kFromPhone = "### From the phone";
constexpr const char* kToPhone = "### To the phone";

std::string ExampleOf(const char* chapter, const std::string& text) {
  for (const DocumentLine& message : MessagesBehind(chapter)) {
    if (message.text.starts_with(text)) return message.bytes;
  }
  ADD_FAILURE() << "no example of " << text;
  return {};
}

std::string Raw(const std::optional<TestPhone::Message>& message) {
  return message ? std::string(1, char(message->opcode)) + message->payload : std::string();
}

std::string Raw(const Command& command) {
  const auto* payload = reinterpret_cast<const char*>(command.payload.data());
  return std::string(1, char(command.opcode)) + std::string(payload, command.payload.size());
}

std::string TokenOfExamples() {
  std::string token;
  for (int i = 0; i < 8; ++i) token += "5f0c9a7e";
  return token;
}

class ProtocolDocument : public SessionFixture {
 protected:
  void ConnectUnpaired() {
    ASSERT_TRUE(Eventually([&] { return shared.ListeningPort() != 0; }));
    phone = TestPhone::Connect(shared.ListeningPort());
    ASSERT_TRUE(phone.Connected());
  }
  // What one second of heartbeats brings.
  std::string ReadHeartbeat() {
    std::byte byte{};
    EXPECT_TRUE(Eventually([&] {
      clock.Advance(kNanosPerSecond);
      return AwaitBytes(phone.Socket(), 10 * kNanosPerMilli);
    }));
    EXPECT_EQ(phone.Socket().Receive({&byte, 1}), 1);
    return std::string(1, char(byte));
  }
};

TEST(ProtocolExamples, ThereIsOneOfEveryMessage) {
  std::set<int> wanted{kClientHello, kPairingCode}, there;
  for (const CommandRow& command : Commands()) wanted.insert(command.opcode);
  for (int opcode = 0; opcode <= UINT8_MAX; ++opcode) {
    if (StatusShape(uint8_t(opcode)) != nullptr) wanted.insert(opcode);
  }
  for (const char* chapter : {kPairing, kFromPhone, kToPhone}) {
    for (const DocumentLine& message : MessagesBehind(chapter)) {
      there.insert(uint8_t(message.bytes.at(0)));
    }
  }
  EXPECT_EQ(there, wanted);
}

// ---- Pairing -----------------------------------------------------------------------------------

TEST_F(ProtocolDocument, ThePlugInPairsSo) {
  instance = std::make_unique<TransmitInstance>(FakeHost::Suites(), Services());
  ASSERT_NO_FATAL_FAILURE(ConnectUnpaired());
  phone.Send(ExampleOf(kPairing, "ClientHello: id \"phone-1\", name \"Anna\", token \"\""));
  EXPECT_EQ(Raw(phone.Next()), ExampleOf(kPairing, "kPairChallenge"));
  shown->Take();
  EXPECT_EQ(CountInPluginLog(" for Anna"), 1U);
  phone.Send(ExampleOf(kPairing, "PairingCode: 042799"));
  EXPECT_EQ(Raw(phone.Next()), ExampleOf(kPairing, "kPairRejected"));
  EXPECT_TRUE(phone.SeesTheEnd());
  EXPECT_EQ(CountInPluginLog("submitted=042799"), 1U);

  AddOrUpdateTrustedPeer({"phone-1", "Anna", TokenOfExamples(), "2026-01-01T00:00:00Z"});
  clock.Advance(kNanosPerSecond);
  ASSERT_NO_FATAL_FAILURE(ConnectUnpaired());
  phone.Send(ExampleOf(kPairing, "ClientHello: the same with the token"));
  EXPECT_EQ(Raw(phone.Next()), ExampleOf(kPairing, "kPairAccepted: 5f0c9a7e (eight times)"));
}

TEST(ProtocolExamples, APhonePairsSo) {
  const SocketLayer layer;
  const std::unique_ptr<StreamListener> listener = ListenTcp(0, *ParseAddress("127.0.0.1"));
  // A phone with this token, and what it says when it hears `answers`, one by one.
  const auto pair = [&](const std::string& token, const std::vector<std::string>& answers) {
    ControlClient client;
    std::string error;
    EXPECT_TRUE(client.Connect({*ParseAddress("127.0.0.1"), listener->Port()}, 0,
                               5 * kNanosPerSecond, error));
    std::string kept;
    auto paired = std::async(std::launch::async, [&] {
      return client.Pair(
          {"phone-1", "Anna", token}, [] { return "042799"; }, kept);
    });
    TestPhone plugIn(listener->Accept(5 * kNanosPerSecond));
    std::vector<std::string> said;
    for (size_t i = 0; i < answers.size(); ++i) {
      std::string bytes(i == 0 ? 15 + token.size() : 7, '\0');
      for (char& byte : bytes) {
        EXPECT_EQ(plugIn.Socket().Receive(std::as_writable_bytes(std::span(&byte, 1))), 1);
      }
      said.push_back(bytes);
      plugIn.Send(answers[i]);
    }
    EXPECT_EQ(paired.get(), ControlClient::PairResult::Paired);
    EXPECT_EQ(kept, TokenOfExamples());
    return said;
  };
  const std::string accepted = ExampleOf(kPairing, "kPairAccepted: 5f0c9a7e (eight times)");
  EXPECT_EQ(pair("", {ExampleOf(kPairing, "kPairChallenge"), accepted}),
            (std::vector{ExampleOf(kPairing, "ClientHello: id \"phone-1\""),
                         ExampleOf(kPairing, "PairingCode: 042799")}));
  EXPECT_EQ(pair(TokenOfExamples(), {accepted}),
            (std::vector{ExampleOf(kPairing, "ClientHello: the same with the token")}));
}

// ---- Commands ----------------------------------------------------------------------------------

// Those with a payload that means something; all others are their name.
const std::map<std::string, Command>& CommandsWithMeaning() {
  const auto bytes = [](std::initializer_list<int> values) {
    std::vector<std::byte> payload;
    for (const int value : values) payload.push_back(std::byte(value));
    return payload;
  };
  static const std::map<std::string, Command> commands = {
      {"set-gop: long", {kSetGopMode, bytes({3})}},
      {"set-codec: H.264", {kSetCodec, bytes({kCodecH264})}},
      {"set-max-resolution: 720", MaxResolutionCommand(720)},
      {"set-encoder-mode: quality, 75 per cent",
       {kSetEncoderMode, bytes({kRateControlQuality, 75})}},
      {"set-engine: \"nvidia\"", EngineCommand("nvidia")},
      {"settings-snapshot: 720, H.264, long GOP, quality, no engine",
       SnapshotCommand({720, kCodecH264, 3, kRateControlQuality, ""})},
      {"settings-snapshot: no limit, HEVC, short GOP, bit rate, \"software\"",
       SnapshotCommand({0, 0, 1, 0, "software"})},
      {"test-marker: \"SELFTEST P3\"", MarkerCommand("SELFTEST P3")},
  };
  return commands;
}

TEST(ProtocolExamples, CommandsAreMadeAndCutApartSo) {
  std::string stream;
  std::vector<std::string> wanted, read;
  for (const DocumentLine& message : MessagesBehind(kFromPhone)) {
    const auto known = CommandsWithMeaning().find(message.text);
    std::string error;
    const std::optional<Command> made =
        known != CommandsWithMeaning().end() ? known->second : ParseCommand(message.text, error);
    ASSERT_TRUE(made) << error;
    EXPECT_EQ(message.bytes, Raw(*made)) << message.text;
    wanted.push_back(Raw(*made));
    stream += message.bytes;
  }
  size_t at = 0;
  RunControlReadLoop(
      [&](std::span<std::byte> out) {
        if (stream.size() - at < out.size()) return false;
        std::memcpy(out.data(), stream.data() + at, out.size());
        at += out.size();
        return true;
      },
      [&](uint8_t opcode, std::span<const std::byte> payload) {
        read.push_back(Raw(Command{opcode, {payload.begin(), payload.end()}}));
      },
      std::atomic<bool>{true});
  EXPECT_EQ(read, wanted);
}

TEST_F(ProtocolDocument, CommandsDoWhatItSays) {
  const auto holds = [this](auto member, int32_t value) {
    return shared.GetClientSettings().*member == value;
  };
  using Settings = ClientSettings;
  const std::map<std::string, std::function<bool()>> effects = {
      {"set-gop: long", [&] { return holds(&Settings::gopSize, 600); }},
      {"set-codec: H.264", [&] { return holds(&Settings::codec, 1); }},
      {"set-max-resolution: 720", [&] { return holds(&Settings::shortSideCap, 720); }},
      {"set-encoder-mode: quality, 75 per cent",
       [&] { return holds(&Settings::encoderMode, 1) && holds(&Settings::quality, 75); }},
      {"set-engine: \"nvidia\"",
       [] { return CountInPluginLog("rebuilt pipeline with 'nvidia'") == 1; }},
      {"settings-snapshot: 720, H.264, long GOP, quality, no engine",
       [&] { return holds(&Settings::quality, 70) && holds(&Settings::gopSize, 600); }},
      {"settings-snapshot: no limit, HEVC, short GOP, bit rate, \"software\"",
       [&] {
         return holds(&Settings::shortSideCap, 0) && holds(&Settings::codec, 0) &&
                holds(&Settings::gopSize, 5) && holds(&Settings::encoderMode, 0) &&
                holds(&Settings::quality, 70) &&
                CountInPluginLog("rebuilt pipeline with 'software'") == 1;
       }},
      {"test-marker: \"SELFTEST P3\"", [] { return CountInPluginLog("[FIXTEST P3] PASS") == 1; }},
  };
  StartSession();
  size_t seen = 0;
  for (const DocumentLine& message : MessagesBehind(kFromPhone)) {
    const auto effect = effects.find(message.text);
    if (effect == effects.end()) continue;
    ++seen;
    phone.Send(message.bytes);
    EXPECT_TRUE(Eventually(effect->second)) << message.text;
  }
  EXPECT_EQ(seen, effects.size());
}

// ---- Status ------------------------------------------------------------------------------------

// A message to the phone as the receiver's library reads it, in the page's words.
std::string TextOf(const std::string& bytes) {
  size_t at = 0;
  StatusMessage message;
  const auto read = [&](std::span<std::byte> out) {
    if (bytes.size() - at < out.size()) return false;
    std::memcpy(out.data(), bytes.data() + at, out.size());
    at += out.size();
    return true;
  };
  if (ReadStatusMessage(read, message) != MessageRead::Message || at != bytes.size()) return {};
  std::ostringstream text;
  text << "k" << StatusName(message.opcode);
  if (const auto info = ParseStreamInfo(message)) {
    text << ": " << info->width << "x" << info->height << ", " << info->fps << " a second, "
         << info->frameByteCap;
  } else if (const auto change = ParseSourceChange(message)) {
    text << ": " << change->width << "x" << change->height << ", " << std::fixed
         << std::setprecision(1) << change->fps << " a second";
  } else if (message.opcode == kCommandAck) {
    text << ": 0x0" << std::hex << std::to_integer<int>(message.payload[0]);
  } else if (message.opcode == kEncoderInfo) {
    text << ": " << message.Text();
  } else if (message.opcode == kEncoderEngineList) {
    const char* between = ": ";
    for (const ReportedEngine& engine : ParseEngineList(message)) {
      text << between << engine.id << ", " << engine.label << ", " << engine.note << ";";
      between = " ";
    }
  } else {
    const char* between = ": ";
    for (const std::byte byte : message.payload) {
      text << between << std::to_integer<int>(byte);
      between = ", ";
    }
  }
  return text.str();
}

TEST_F(ProtocolDocument, ThePlugInTellsItsStateSoAndAPhoneReadsIt) {
  engines = {{"nvidia", "NVIDIA NVENC", ""}, {"software", "Software (CPU)", "slow"}};
  encoder->With([](EncoderRecord::Data& data) {
    data.description = "libx264 [SW, 1280x720 H.264 @ 30 fps, 150 Mbps]";
  });
  instance = std::make_unique<TransmitInstance>(FakeHost::Suites(), Services());
  instance->Start();
  ASSERT_NO_FATAL_FAILURE(ConnectPhone());
  std::set<std::string> said;
  const auto note = [&](const Messages& messages) {
    for (const auto& [opcode, payload] : messages) {
      said.insert(std::string(1, char(opcode)) + payload);
    }
  };
  note(MessagesUpTo(kTransmitState));
  said.insert(ReadHeartbeat());
  Push(1280, 720);
  instance->UpdateAudioPushState(true, false);
  phone.Send(ExampleOf(kFromPhone, "set-codec"));
  note(MessagesUpTo(kCommandAck));
  for (const DocumentLine& message : MessagesBehind(kToPhone)) {
    EXPECT_TRUE(said.contains(message.bytes)) << message.text;
    EXPECT_EQ(TextOf(message.bytes), message.text);
  }
}

}  // namespace
}  // namespace Veldrift
