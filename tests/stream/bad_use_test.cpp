// What users get for a mistake: one sentence, and an exit code that says which.
#include <gtest/gtest.h>

#include "platform/file.h"
#include "platform/socket.h"
#include "tests/stream/stage.h"
#include "tools/platform/client_sockets.h"
#include "tools/receiver/media_receiver.h"

namespace Veldrift {
namespace {

// "@" in an argument stands for the test's folder.
struct Mistake {
  const char* name;
  const char* program;
  Arguments arguments;
  int exit;
  const char* sentence;  // a part of it
  bool readsFile = false;
};

void PrintTo(const Mistake& mistake, std::ostream* out) { *out << mistake.name; }

class BadUse : public testing::TestWithParam<Mistake> {};

void ExpectOneSentence(const StandIn& child, const std::string& program, const std::string& part) {
  const std::vector<std::string> said = child.Complaints();
  ASSERT_EQ(said.size(), 1u) << testing::PrintToString(said);
  EXPECT_TRUE(said[0].starts_with(program + ": ")) << said[0];
  EXPECT_NE(said[0].find(part), std::string::npos) << said[0];
}

TEST_P(BadUse, IsAnsweredInOneSentence) {
  const Mistake& mistake = GetParam();
  if (HostIsWindows() && mistake.readsFile) GTEST_SKIP() << "that host has no decoder";
  Stage stage;
  ASSERT_EQ(WriteWholeFile(stage.File("letter.mp4"), "Dear Sir or Madam,\nthis is no video.\n"),
            WriteResult::Written);
  Arguments arguments = mistake.arguments;
  for (std::string& argument : arguments) {
    if (argument.starts_with("@")) argument = PathText(stage.File(argument.substr(1)));
  }
  StandIn child(mistake.program, arguments, stage.NewStem("child"));
  EXPECT_EQ(child.Wait(), mistake.exit);
  ExpectOneSentence(child, mistake.program, mistake.sentence);
}

const char* const kHost = "veldrift-host";
const char* const kPhone = "veldrift-phone";

INSTANTIATE_TEST_SUITE_P(
    Mistakes, BadUse,
    testing::Values(
        Mistake{"HostMissingFile",
                kHost,
                {"--home", "@home", "--input", "@none.mp4"},
                5,
                "none.mp4",
                true},
        Mistake{"HostNoVideo",
                kHost,
                {"--home", "@home", "--input", "@letter.mp4"},
                5,
                "letter.mp4",
                true},
        Mistake{"HostUnknownOption", kHost, {"--frobnicate"}, 2, "--frobnicate"},
        Mistake{"HostSelfTestOfAnotherSize",
                kHost,
                {"--self-test", "--size", "640x360"},
                2,
                "--size excludes --self-test"},
        Mistake{"HostBadSize", kHost, {"--size", "7"}, 2, "--size 7"},
        Mistake{"HostNoNumber", kHost, {"--fps", "nan"}, 2, "nan isn't a number from 1 to 240"},
        Mistake{"HostFewerThanNone", kHost, {"--frames", "-1"}, 2, "-1 isn't a whole number"},
        Mistake{"HostNoHome", kHost, {"--home", "", "--no-discovery"}, 2, "empty"},
        Mistake{"HostImpossibleHome",
                kHost,
                {"--home", "@letter.mp4", "--host", "unknown"},
                1,
                "can't make the folder"},
        Mistake{"HostBadScript", kHost, {"--script", "3 jump"}, 2, "3 jump"},
        Mistake{"HostNoSoundFile", kHost, {"--audio", "file"}, 2, "--input"},
        Mistake{"HostDiscoveryHome", kHost, {"--no-discovery"}, 2, "--home"},
        Mistake{"PhoneNoHost", kPhone, {}, 2, "--uri is missing"},
        Mistake{"PhoneUnknownOption", kPhone, {"--frobnicate"}, 2, "--frobnicate"},
        Mistake{"PhoneBadCode", kPhone, {"--host", "127.0.0.1", "--code", "12"}, 2, "six digits"},
        Mistake{"PhoneBadAddress", kPhone, {"--host", "nowhere"}, 2, "nowhere"},
        Mistake{"PhoneBadCommand",
                kPhone,
                {"--host", "127.0.0.1", "--send", "jump"},
                2,
                "no command jump"},
        Mistake{"PhoneBadPayload",
                kPhone,
                {"--host", "127.0.0.1", "--send", "set-gop=0102"},
                2,
                "payload 0102"},
        Mistake{
            "PhoneNoLog", kPhone, {"--host", "127.0.0.1", "--self-test", "P3"}, 2, "--plugin-log"},
        Mistake{"PhoneUri", kPhone, {"--uri", "veldrift://x"}, 2, "isn't a pairing URI"},
        Mistake{"PhoneTwoWays", kPhone, {"--host", "127.0.0.1", "--discover"}, 2, "only one of"}),
    [](const auto& given) { return std::string(given.param.name); });

TEST(BadUse, AModuleThatIsNotThereIsNamed) {
  Stage stage;
  // Whoever has the control port must not be taken for the fault that is meant.
  uint16_t port = 0;
  const char* role = nullptr;
  for (const auto& [name, candidate] :
       {std::pair{"mediaencoder", 47120}, {"aftereffects", 47110}, {"premiere", 47100}}) {
    if (role != nullptr || TcpPortInUse(uint16_t(candidate))) continue;
    port = uint16_t(candidate);
    role = name;
  }
  ASSERT_NE(port, 0) << "every control port is in use";
  StandIn host(kHost,
               {"--host", role, "--home", PathText(stage.File("home")), "--module",
                PathText(stage.File("none.prm"))},
               stage.NewStem("host"));
  EXPECT_EQ(host.Wait(), 3);
  ExpectOneSentence(host, kHost, "none.prm");
}

TEST(BadUse, NobodyListeningIsSaid) {
  Stage stage;
  uint16_t port = 0;
  {
    const SocketLayer sockets;
    port = ListenTcp(0)->Port();  // free again at once
  }
  const std::string endpoint = "127.0.0.1:" + std::to_string(port);
  StandIn phone(kPhone, {"--host", endpoint, "--bind", stage.NewAddress(), "--wait", "0.2"},
                stage.NewStem("phone"));
  EXPECT_EQ(phone.Wait(), 3);
  ExpectOneSentence(phone, kPhone, "no plug-in answers at " + endpoint);
}

TEST(BadUse, AMediaPortInUseIsNamed) {
  for (const uint16_t port : {uint16_t{47101}, uint16_t{47102}}) {
    Stage stage;
    const SocketLayer sockets;
    const std::string address = stage.NewAddress();
    const auto taken = OpenDatagramReceiver({*ParseAddress(address), port}, 0);
    ASSERT_NE(taken, nullptr);
    StandIn phone(kPhone, {"--host", "127.0.0.1", "--bind", address}, stage.NewStem("phone"));
    EXPECT_EQ(phone.Wait(), 4);
    ExpectOneSentence(phone, kPhone,
                      "port " + std::to_string(port) + " on " + address + " is in use");
  }
}

TEST(BadUse, AControlPortInUseEndsTheHost) {
  Stage stage;
  const SocketLayer sockets;
  // If another program of this machine has it, so much the better.
  const auto taken = ListenTcp(47120);
  StandIn host(kHost, {"--host", "mediaencoder", "--home", PathText(stage.File("home"))},
               stage.NewStem("host"));
  EXPECT_EQ(host.Wait(), 8);
  ExpectOneSentence(host, kHost, "control port 47120 is in use");
}

// Its exit code is its answer; what it would delete must still be there.
TEST(BadUse, TheDemoTouchesNothingThatItDidNotMake) {
  const ScratchFolder folder;
  const std::filesystem::path home = folder.Path() / "home";
  std::filesystem::create_directories(home);
  ASSERT_EQ(WriteWholeFile(home / "thesis.txt", "precious"), WriteResult::Written);
  for (const Arguments& options : {Arguments{"--size", "10"},
                                   {"--codec", "av1"},
                                   {"--seconds", "nan"},
                                   {"--frobnicate"},
                                   {}}) {
    Arguments all = {PathText(std::filesystem::path(VD_SOURCE_DIR) / "dev"), "demo", "--out",
                     PathText(folder.Path())};
    all.insert(all.end(), options.begin(), options.end());
    const auto demo = StartProcess(
        "/bin/bash", all, ProcessOutput{folder.Path() / "said.out", folder.Path() / "said.err"});
    EXPECT_EQ(demo->Wait(), 2) << testing::PrintToString(options);
    EXPECT_EQ(ReadWholeFile(home / "thesis.txt"), "precious") << testing::PrintToString(options);
  }
  EXPECT_FALSE(std::filesystem::exists(folder.Path() / ".veldrift-demo"));
}

// The file is one that is never read to its head: a connection that says nothing.
TEST(BadUse, CtrlCWhileAFileIsOpenedIsTheEnd) {
  if (HostIsWindows()) GTEST_SKIP() << "that host has no decoder";
  Stage stage;
  const SocketLayer sockets;
  const auto listener = ListenTcp(0);
  StandIn host(kHost,
               {"--home", PathText(stage.File("home")), "--input",
                "tcp://127.0.0.1:" + std::to_string(listener->Port())},
               stage.NewStem("host"));
  const auto file = listener->Accept(kPatienceNanos);
  ASSERT_NE(file, nullptr);
  host.Interrupt();
  EXPECT_EQ(host.Wait(), 0) << testing::PrintToString(host.Complaints());
}

}  // namespace
}  // namespace Veldrift
