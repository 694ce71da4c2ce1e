// How a phone comes back: by its token, with its settings, and without what was done once.
#include "tools/receiver/phone_link.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <iterator>
#include <utility>

#include "net/control_protocol.h"
#include "tests/support/eventually.h"
#include "tests/support/scratch.h"
#include "tests/tools/scripted_plugin.h"
#include "tools/receiver/token_file.h"

namespace Veldrift {
namespace {

const std::string kHello =
    "\x30\x02id\x04"
    "name";

class ComingBack : public testing::Test {
 protected:
  ComingBack() {
    options_.host = plugin_.Address();
    options_.id = "id";
    options_.name = "name";
    options_.code = "123456";
    options_.settings = {{kSetGopMode, {std::byte{3}}}};
    options_.commands = {{kHostCommandFirst, {}}};
  }

  // A first connection by the code, whose token is "tok".
  void PairAndLose(PhoneLink& link) {
    plugin_.Run([](ScriptedPlugin& p) {
      EXPECT_EQ(p.Hear(10), kHello + std::string(1, '\0'));
      p.Say("\x31");
      EXPECT_EQ(p.Hear(7),
                "\x32"
                "123456");
      p.Say("\x33\x03tok");
      EXPECT_EQ(p.Hear(3), "\x04\x03\x20");
    });
    std::string sentence;
    ASSERT_EQ(link.Open(sentence), LinkResult::Open) << sentence;
    ASSERT_TRUE(Eventually([&] { return link.Ended(); }));
  }

  ScriptedPlugin plugin_;
  LinkOptions options_;
  const std::atomic<bool> interrupted_{false};
};

TEST_F(ComingBack, ATokenThatCantBeKeptIsToldBeforeThePlugInIsCalled) {
  const ScratchFolder folder;
  options_.waitSeconds = 0.1;
  for (const auto& [file, reason] : {std::pair(folder.Path() / "nowhere" / "token", "can't write "),
                                     std::pair(folder.Path(), " is a folder")}) {
    options_.tokenFile = file;
    PhoneLink link(options_, interrupted_);
    std::string sentence;
    EXPECT_EQ(link.Open(sentence), LinkResult::Failed);
    EXPECT_TRUE(sentence.starts_with("can't keep the token: ")) << sentence;
    EXPECT_NE(sentence.find(reason), sentence.npos) << sentence;
  }
  options_.tokenFile = folder.Path() / "token";
  PhoneLink link(options_, interrupted_);
  ASSERT_NO_FATAL_FAILURE(PairAndLose(link));
  EXPECT_EQ(ReadToken(options_.tokenFile), "tok");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), {}), 1);
}

TEST_F(ComingBack, IsByTheTokenThatIsKeptInMemoryAndSendsTheSettingsAloneAgain) {
  PhoneLink link(options_, interrupted_);
  ASSERT_NO_FATAL_FAILURE(PairAndLose(link));
  std::promise<std::string> heard;
  plugin_.Run([&heard](ScriptedPlugin& p) {
    EXPECT_EQ(p.Hear(13), kHello + "\x03tok");
    p.Say("\x33\x03tok");
    heard.set_value(p.Hear(3));
  });
  std::string sentence;
  ASSERT_EQ(link.Reopen(plugin_.Address(), sentence), LinkResult::Open) << sentence;
  link.Send({kRequestIdr, {}});
  EXPECT_EQ(heard.get_future().get(), "\x04\x03\x01");
}

// A code is good for one connection.
TEST_F(ComingBack, ToAPlugInThatKnowsTheTokenNoMoreIsRefused) {
  PhoneLink link(options_, interrupted_);
  ASSERT_NO_FATAL_FAILURE(PairAndLose(link));
  plugin_.Run([](ScriptedPlugin& p) {
    p.Hear(13);
    p.Say("\x31");
    p.WaitForEnd();
  });
  std::string sentence;
  EXPECT_EQ(link.Reopen(plugin_.Address(), sentence), LinkResult::Refused);
  EXPECT_EQ(sentence, "the plug-in doesn't trust this phone any more: it must be paired anew");
  link.Close();
}

TEST_F(ComingBack, WhereItIsHungUpOnOrNobodyListensMayBeTriedAgain) {
  PhoneLink link(options_, interrupted_);
  ASSERT_NO_FATAL_FAILURE(PairAndLose(link));
  plugin_.Run([](ScriptedPlugin& p) { p.Hear(13); });
  std::string sentence;
  EXPECT_EQ(link.Reopen(plugin_.Address(), sentence), LinkResult::Closed);
  const uint16_t nobody = ListenTcp(0, *ParseAddress("127.0.0.1"))->Port();
  EXPECT_EQ(link.Reopen({*ParseAddress("127.0.0.1"), nobody}, sentence), LinkResult::NoAnswer);
}

}  // namespace
}  // namespace Veldrift
