#include "identity/install_identity.h"

#include <thread>

#include "tests/identity/settings_fixture.h"

namespace Veldrift {
namespace {

class InstallIdentityFile : public SettingsFixture {
 protected:
  static void Put(const std::string& text) { SettingsFixture::Put("install.json", text); }
  static std::string Text() { return SettingsFixture::Text("install.json"); }
};

TEST_F(InstallIdentityFile, IsBornWithTheFirstQuestionForTheIdentity) {
  const InstallIdentity identity = LoadOrCreateInstallIdentity();
  EXPECT_EQ(identity.id.size(), 36u);
  EXPECT_EQ(identity.name, GetHostComputerName());
  EXPECT_EQ(Text(), "{\"id\":\"" + identity.id + "\",\"name\":\"" + identity.name +
                        "\",\"discoverable\":\"true\",\"enableAsyncHwEncoders\":\"false\"}\n");
  EXPECT_EQ(LoadOrCreateInstallIdentity().id, identity.id);
  EXPECT_EQ(CountInPluginLog(":installid:INFO] install identity created id=" + identity.id +
                             " name=" + identity.name + "\r\n"),
            1u);
}

TEST_F(InstallIdentityFile, IsNotMadeByTheOtherQuestions) {
  EXPECT_TRUE(IsDiscoverable());
  EXPECT_FALSE(IsAsyncHwEncodersEnabled());
  SetDisplayName("nobody");
  EXPECT_EQ(Text(), "no file");
}

TEST_F(InstallIdentityFile, OnlyTheExactTextMovesASwitch) {
  const struct {
    const char* value;
    bool discoverable;
    bool async;
  } kCases[] = {
      {"\"true\"", true, true},    {"\"false\"", false, false}, {"\"FALSE\"", true, false},
      {"\"TRUE\"", true, false},   {"\"yes\"", true, false},    {"\"\"", true, false},
      {"\"false \"", true, false}, {"false", true, false},      {"true", true, false},
  };
  for (const auto& c : kCases) {
    const std::string value = c.value;
    Put("{\"id\":\"i\",\"discoverable\":" + value + ",\"enableAsyncHwEncoders\":" + value + "}");
    EXPECT_EQ(IsDiscoverable(), c.discoverable) << value;
    EXPECT_EQ(IsAsyncHwEncodersEnabled(), c.async) << value;
  }
}

TEST_F(InstallIdentityFile, EachSetterKeepsTheRest) {
  Put(R"({"id":"i","name":"n","discoverable":"true","enableAsyncHwEncoders":"true"})");
  SetDiscoverable(false);
  EXPECT_EQ(Text(),
            "{\"id\":\"i\",\"name\":\"n\",\"discoverable\":\"false\","
            "\"enableAsyncHwEncoders\":\"true\"}\n");
  SetEnableAsyncHwEncoders(false);
  SetDisplayName("m");
  EXPECT_EQ(Text(),
            "{\"id\":\"i\",\"name\":\"m\",\"discoverable\":\"false\","
            "\"enableAsyncHwEncoders\":\"false\"}\n");
  SetDiscoverable(true);
  EXPECT_TRUE(IsDiscoverable());
  EXPECT_EQ(CountInPluginLog(":installid:INFO] discoverable=false\r\n"), 1u);
  EXPECT_EQ(CountInPluginLog(":installid:INFO] discoverable=true\r\n"), 1u);
  EXPECT_EQ(CountInPluginLog(":installid:INFO] enableAsyncHwEncoders=false\r\n"), 1u);
}

TEST_F(InstallIdentityFile, IsBornWithASetterToo) {
  SetEnableAsyncHwEncoders(true);
  EXPECT_TRUE(IsAsyncHwEncodersEnabled());
  const InstallIdentity identity = LoadOrCreateInstallIdentity();
  EXPECT_EQ(identity.name, GetHostComputerName());
  EXPECT_TRUE(IsAsyncHwEncodersEnabled());
  EXPECT_EQ(CountInPluginLog("install identity created"), 0u);
}

TEST_F(InstallIdentityFile, WithoutANameGetsTheMachinesAndKeepsItsSwitches) {
  Put(R"({"id":"i","discoverable":"false","enableAsyncHwEncoders":"true"})");
  EXPECT_EQ(LoadOrCreateInstallIdentity().id, "i");
  EXPECT_EQ(Text(), "{\"id\":\"i\",\"name\":\"" + GetHostComputerName() +
                        "\",\"discoverable\":\"false\",\"enableAsyncHwEncoders\":\"true\"}\n");
}

TEST_F(InstallIdentityFile, NamesComeBackAsTheyWere) {
  LoadOrCreateInstallIdentity();
  for (const std::string name : {"a \"b\" \\ c", "two\nlines", "Caf\xC3\xA9 \xF0\x9F\x8E\xAC"}) {
    SetDisplayName(name);
    EXPECT_EQ(LoadOrCreateInstallIdentity().name, name);
  }
  SetDisplayName("\x01");
  EXPECT_NE(Text().find("\"name\":\"\\u0001\""), std::string::npos);
  EXPECT_EQ(LoadOrCreateInstallIdentity().name, "u0001");
}

TEST_F(InstallIdentityFile, ThatIsBrokenIsMadeAnew) {
  for (const char* text : {"", "{\"id\":\"cut", "no json", "{\"id\":\"\",\"name\":\"n\"}"}) {
    Put(text);
    const InstallIdentity identity = LoadOrCreateInstallIdentity();
    EXPECT_EQ(identity.id.size(), 36u) << text;
    EXPECT_EQ(LoadOrCreateInstallIdentity().id, identity.id) << text;
  }
}

TEST_F(InstallIdentityFile, ThatCannotBeWrittenStillGivesAnIdentity) {
  EnsureAppSupportDir();
  std::filesystem::create_directories(File("install.json.tmp"));
  EXPECT_EQ(LoadOrCreateInstallIdentity().id.size(), 36u);
  SetDiscoverable(false);
  EXPECT_EQ(CountInPluginLog(":installid:ERROR] write identity: open("), 2u);
  EXPECT_EQ(CountInPluginLog("discoverable=false"), 1u);
}

TEST_F(InstallIdentityFile, ThatCannotBeReadIsLeftAsItIs) {
  Obstruct("install.json");
  const InstallIdentity first = LoadOrCreateInstallIdentity();
  EXPECT_EQ(first.id.size(), 36u);
  EXPECT_EQ(LoadOrCreateInstallIdentity().id, first.id) << "the process needs one identity";
  SetDiscoverable(false);
  SetDisplayName("another");
  EXPECT_TRUE(IsDiscoverable());
  EXPECT_TRUE(std::filesystem::exists(File("install.json") / "in the way"));
  EXPECT_FALSE(std::filesystem::exists(File("install.json.tmp")));
  EXPECT_EQ(CountInPluginLog("install identity created"), 0u);
  EXPECT_EQ(CountInPluginLog("can't be read and stays as it is"), 3u);
}

TEST_F(InstallIdentityFile, ThreadsDoNotLoseEachOthersChanges) {
  const std::string id = LoadOrCreateInstallIdentity().id;
  for (int round = 0; round < 30 && !HasFailure(); ++round) {
    const bool flag = round % 2 == 0;
    const std::string name = std::to_string(round);
    std::thread first([&] { SetDiscoverable(flag); });
    std::thread second([&] { SetEnableAsyncHwEncoders(flag); });
    std::thread third([&] { SetDisplayName(name); });
    first.join();
    second.join();
    third.join();
    const std::string text = flag ? "true" : "false";
    EXPECT_EQ(Text(), "{\"id\":\"" + id + "\",\"name\":\"" + name + "\",\"discoverable\":\"" +
                          text + "\",\"enableAsyncHwEncoders\":\"" + text + "\"}\n");
  }
}

}  // namespace
}  // namespace Veldrift
