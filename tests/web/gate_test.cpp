// Who may have what: keys, origins, names and paths; and what a page may ask of the host.
#include "tools/phone/web_gate.h"

#include <gtest/gtest.h>

#include "net/control_protocol.h"
#include "platform/file.h"
#include "tests/support/scratch.h"
#include "tests/tools/fake_link.h"
#include "tools/phone/web_command.h"
#include "tools/phone/web_options.h"
#include "tools/phone/web_remote.h"

namespace Veldrift {
namespace {

const std::string kSteer(32, 'a');
const std::string kLook(32, 'b');

struct Row {
  WebRequest request;
  int status;
  bool maySteer = false;
};

TEST(Gate, LetsInWhoHasTheKeyAndComesFromThePage) {
  const WebGate gate({kSteer, kLook}, 8080);
  const std::string_view here = "127.0.0.1:8080";
  const std::string longKey = kSteer + "a";
  const std::string shortKey = kSteer.substr(1);
  const Row rows[] = {
      // The page itself, to anybody.
      {{"GET", "/", here, "", "", ""}, 200},
      {{"GET", "/player.js", here, "", "", ""}, 200},
      {{"GET", "/", "192.0.2.7:8080", "", "", ""}, 200},
      {{"GET", "/", "localhost:8080", "", "", ""}, 200},
      {{"POST", "/", here, "", "", ""}, 405},
      {{"OPTIONS", "/command", here, "", "", ""}, 405},
      {{"OPTIONS", "*", here, "", "", ""}, 404},
      // Nothing else of the machine.
      {{"GET", "/etc/passwd", here, "", kSteer, ""}, 404},
      {{"GET", "/../page.js", here, "", kSteer, ""}, 404},
      {{"GET", "//", here, "", kSteer, ""}, 404},
      {{"GET", "/index.html", here, "", kSteer, ""}, 404},
      {{"GET", "", here, "", kSteer, ""}, 404},
      {{"GET", "/live/", here, "", kSteer, ""}, 404},
      // Looking.
      {{"GET", "/live", here, "", kSteer, ""}, 200, true},
      {{"GET", "/live", here, "", kLook, ""}, 200},
      {{"GET", "/live", here, "", "", ""}, 403},
      {{"GET", "/live", here, "", shortKey, ""}, 403},
      {{"GET", "/live", here, "", longKey, ""}, 403},
      {{"GET", "/live", here, "", "", kLook}, 200},
      {{"GET", "/live", here, "", "", kSteer}, 200},
      {{"GET", "/events", here, "", "", kLook}, 403},
      {{"GET", "/events", here, "", kLook, ""}, 200},
      {{"HEAD", "/live", here, "", kLook, ""}, 405},
      // Steering.
      {{"POST", "/command", here, "http://127.0.0.1:8080", kSteer, ""}, 200, true},
      {{"POST", "/command", here, "", kSteer, ""}, 200, true},
      {{"POST", "/command", here, "", kLook, ""}, 403},
      {{"POST", "/command", here, "", "", kSteer}, 403},
      {{"GET", "/command", here, "", kSteer, ""}, 405},
      // Other people's pages, and names that they let point here.
      {{"POST", "/command", here, "http://example.org", kSteer, ""}, 403},
      {{"POST", "/command", here, "null", kSteer, ""}, 403},
      {{"GET", "/live", here, "http://127.0.0.1:8081", kLook, ""}, 403},
      {{"GET", "/", "example.org:8080", "", "", ""}, 403},
      {{"GET", "/", "127.0.0.1.example.org:8080", "", "", ""}, 403},
      {{"GET", "/", "127.0.0.1:8081", "", "", ""}, 403},
      {{"GET", "/", "127.0.0.1", "", "", ""}, 403},
      {{"GET", "/", "", "", "", ""}, 403},
      {{"GET", "/", ":8080", "", "", ""}, 403},
      {{"GET", "/", "127.0.0.1:8080x", "", "", ""}, 403},
  };
  for (const Row& row : rows) {
    const WebVerdict verdict = gate.Judge(row.request);
    const std::string what = std::string(row.request.method) + " " + std::string(row.request.path) +
                             " host=" + std::string(row.request.host) +
                             " origin=" + std::string(row.request.origin);
    EXPECT_EQ(verdict.status, row.status) << what;
    EXPECT_EQ(verdict.maySteer, row.maySteer) << what;
  }
  // HTTP's own port isn't written.
  EXPECT_EQ(WebGate({kSteer, kLook}, 80).Judge({"GET", "/", "192.0.2.7", "", "", ""}).status, 200);
}

TEST(Keys, AreNewEachTimeUnlessAFileKeepsThem) {
  std::string sentence;
  const auto first = LoadWebKeys("", sentence);
  const auto second = LoadWebKeys("", sentence);
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->steer.size(), 32U);
  EXPECT_NE(first->steer, first->look);
  EXPECT_NE(first->steer, second->steer);

  ScratchFolder folder;
  const auto file = folder.Path() / "keys";
  const auto made = LoadWebKeys(file, sentence);
  const auto read = LoadWebKeys(file, sentence);
  ASSERT_TRUE(made && read) << sentence;
  EXPECT_EQ(made->steer, read->steer);
  EXPECT_EQ(made->look, read->look);
  EXPECT_EQ(std::filesystem::status(file).permissions() & std::filesystem::perms::all,
            std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  for (const std::string& bad : {std::string(), std::string("secret"), kSteer + "-" + kSteer,
                                 kSteer, kSteer + "-" + kLook + "0"}) {
    WriteWholeFile(file, bad);
    EXPECT_FALSE(LoadWebKeys(file, sentence)) << bad;
    EXPECT_FALSE(sentence.empty());
  }
  EXPECT_FALSE(LoadWebKeys(folder.Path() / "none" / "keys", sentence));
}

TEST(Place, IsThisMachineAloneUnlessAnAddressIsGiven) {
  Ipv4Endpoint local;
  ASSERT_TRUE(ParseWebPlace("8080", local));
  EXPECT_EQ(AddressText(local.address), "127.0.0.1");
  EXPECT_EQ(local.port, 8080);
  ASSERT_TRUE(ParseWebPlace("0.0.0.0:81", local));
  EXPECT_EQ(local.address, 0U);
  for (const char* bad :
       {"", ":", ":8080", "host:80", "1.2.3:80", "80000", "-1", "80x", "1.2.3.4"}) {
    EXPECT_FALSE(ParseWebPlace(bad, local)) << bad;
  }
}

TEST(PageCommand, IsOneOfFew) {
  struct Known {
    const char* text;
    uint8_t opcode;
    std::vector<int> payload;
  };
  const Known known[] = {
      {"play", 0x20, {}},
      {"step-forward", 0x21, {}},
      {"shuttle-forward", 0x29, {}},
      {"codec=h264", 0x05, {1}},
      {"codec=hevc", 0x05, {0}},
      {"gop=intra", 0x04, {0}},
      {"gop=long", 0x04, {3}},
      {"gop=auto", 0x04, {2}},
      {"size=720", 0x07, {0xD0, 0x02}},
      {"size=65535", 0x07, {255, 255}},
      {"quality=30", 0x08, {1, 30}},
      {"bitrate", 0x08, {0, 0}},
      {"request-idr", 0x01, {}},
  };
  for (const Known& row : known) {
    const auto command = ParseWebCommand(row.text);
    ASSERT_TRUE(command) << row.text;
    EXPECT_EQ(command->opcode, row.opcode);
    std::vector<int> payload;
    for (const std::byte byte : command->payload) payload.push_back(std::to_integer<int>(byte));
    EXPECT_EQ(payload, row.payload) << row.text;
    const std::string setting = WebSettingText(*command);
    EXPECT_TRUE(setting.empty() ? row.opcode >= 0x20 || row.opcode == 0x01 : setting == row.text);
  }
  for (const char* bad :
       {"", "Play", "play ", "play\n", "codec=", "codec=av1", "size=", "size=-1", "size=65536",
        "size=7 20", "size=0x10", "quality=101", "quality=", "test-marker", "set-engine",
        "set-codec=01", "settings-snapshot", "size=99999999999999999999"}) {
    EXPECT_FALSE(ParseWebCommand(bad)) << bad;
  }
}

class Remote : public testing::Test {
 protected:
  std::vector<std::string> Sent() {
    std::vector<std::string> texts;
    for (const Command& command : std::exchange(link_.sent, {})) {
      const std::string setting = WebSettingText(command);
      texts.push_back(setting.empty() ? CommandName(command.opcode) : setting);
    }
    return texts;
  }
  WebRemote::Answer Offer(const char* text) {
    return remote_.Offer(*ParseWebCommand(text), nowNs_);
  }
  void Tick(bool connected, double seconds = 0) {
    nowNs_ += int64_t(seconds * 1e9);
    remote_.Tick(link_, connected, nowNs_);
  }

  using Texts = std::vector<std::string>;
  ScriptClock clock_;
  FakeLink link_{clock_};
  int64_t nowNs_ = kNanosPerSecond;
  WebRemote remote_{{*ParseWebCommand("codec=h264"), *ParseWebCommand("gop=long")}};
};

TEST_F(Remote, BringsKeysToTheHostOnceAndNeverLate) {
  EXPECT_EQ(Offer("play"), WebRemote::Answer::NoConnection);
  Tick(true);
  EXPECT_EQ(Offer("play"), WebRemote::Answer::Taken);
  EXPECT_EQ(Offer("step-back"), WebRemote::Answer::Taken);
  Tick(true);
  EXPECT_EQ(Sent(), (Texts{"play", "step-back"}));
  Tick(true);
  EXPECT_EQ(Sent(), Texts{});
  EXPECT_EQ(Offer("play"), WebRemote::Answer::Taken);
  Tick(false);  // lost, just now
  EXPECT_EQ(Offer("play"), WebRemote::Answer::NoConnection);
  Tick(true, 1);
  EXPECT_EQ(Sent(), Texts{});
}

// It alone asks the plug-in for them, so that they don't fight.
TEST_F(Remote, LeavesSizeQualityAndKeyFramesToAnAdapter) {
  ArrivalCounters arrivals;
  uint16_t source = 1080;
  Adapter adapter(
      {0, 80}, [&] { return arrivals; }, [&] { return source; });
  WebRemote remote({*ParseWebCommand("codec=h264")}, &adapter);
  std::string said;
  const auto tick = [&](bool connected) {
    nowNs_ += kNanosPerSecond;
    if (connected)
      adapter.Steer(
          link_, [&](const std::string& text) { said = text; }, nowNs_);
    remote.Tick(link_, connected, nowNs_);
  };
  const auto offer = [&](const char* text) { remote.Offer(*ParseWebCommand(text), nowNs_); };
  adapter.BeginConnection(
      link_, [](const std::string&) {}, false, nowNs_);
  EXPECT_EQ(remote.Settings(), (Texts{"gop=auto", "codec=h264", "size=0", "quality=80"}));
  EXPECT_EQ(Sent(), (Texts{"gop=long", "size=720", "quality=40"}));
  tick(true);
  for (const char* text : {"size=360", "gop=short", "codec=hevc", "play"}) offer(text);
  tick(true);
  EXPECT_EQ(Sent(), (Texts{"codec=hevc", "play"}));
  tick(true);
  EXPECT_EQ(Sent(), (Texts{"gop=short", "size=360", "quality=60"}));
  EXPECT_EQ(said, "as asked for: 360p, quality 60");
  EXPECT_EQ(remote.Settings(), (Texts{"gop=short", "codec=hevc", "size=360", "quality=80"}));
  tick(false);
  adapter.BeginConnection(
      link_, [](const std::string&) {}, true, nowNs_);
  EXPECT_EQ(Sent(), (Texts{"gop=short", "size=360", "quality=60"}));
  for (int i = 0; i < 3; ++i) tick(true);
  EXPECT_EQ(Sent(), Texts{"codec=hevc"});  // alone
}

TEST_F(Remote, TellsAPlugInThatWasStartedAnewWhatPagesHadSet) {
  Tick(true);
  Offer("size=720");
  Offer("codec=hevc");
  Offer("size=540");
  Tick(true, 1);
  EXPECT_EQ(Sent(), (Texts{"size=720", "codec=hevc", "size=540"}));
  EXPECT_EQ(remote_.Settings(), (Texts{"gop=long", "codec=hevc", "size=540"}));
  Tick(false, 1);
  Tick(true, 1);
  EXPECT_EQ(Sent(), Texts{});  // others are first
  Tick(true, 0.3);
  EXPECT_EQ(Sent(), (Texts{"codec=hevc", "size=540"}));
  Tick(true, 0.3);
  EXPECT_EQ(Sent(), Texts{});
}

TEST_F(Remote, TakesOnlySoManyASecond) {
  Tick(true);
  int taken = 0;
  for (int i = 0; i < 100; ++i) taken += Offer("play") == WebRemote::Answer::Taken;
  EXPECT_EQ(taken, 20);
  EXPECT_EQ(Offer("play"), WebRemote::Answer::TooMany);
  Tick(true, 0.5);
  for (int i = 0; i < 100; ++i) taken += Offer("play") == WebRemote::Answer::Taken;
  EXPECT_EQ(taken, 30);
}

}  // namespace
}  // namespace Veldrift
