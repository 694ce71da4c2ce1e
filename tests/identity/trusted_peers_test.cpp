#include "identity/trusted_peers.h"

#include "identity/trusted_peers_text.h"
#include "tests/identity/settings_fixture.h"

namespace Veldrift {
namespace {

constexpr const char* kFile = "trusted-x.json";  // a test is the unknown host
constexpr const char* kTwo = R"([{"id":"a","name":"A","token":"ta","firstPaired":"1"},)"
                             R"({"id":"b","name":"B","token":"tb","firstPaired":"2"}])"
                             "\n";

const TrustedPeer kA = {"a", "A", "ta", "1"};
const TrustedPeer kB = {"b", "B", "tb", "2"};

TEST(TrustedPeersText, IsOneLineInTheOrderOfTheList) {
  EXPECT_EQ(FormatTrustedPeers({kA, kB}), kTwo);
  EXPECT_EQ(FormatTrustedPeers({}), "[]\n");
}

TEST(TrustedPeersText, IsReadForItsObjectsOnly) {
  const struct {
    const char* text;
    std::vector<TrustedPeer> peers;
  } kCases[] = {
      {kTwo, {kA, kB}},
      {"", {}},
      {"[]\n", {}},
      {R"(noise {"id":"a","name":"A","token":"ta","firstPaired":"1"} more ] noise)", {kA}},
      {R"({"firstPaired":"1","token":"ta","name":"A","id":"a"})", {kA}},
      {R"([{"id":"a","token":"ta"}])", {{"a", "", "ta", ""}}},
      {R"([{"id":"a","name":"A"},{"name":"B","token":"tb"},{"id":"","token":"t"},{}])", {}},
      {R"([{"id":"a","name":"} {","token":"ta","firstPaired":"1"}])", {{"a", "} {", "ta", "1"}}},
      {R"([{"id":"a","name":"\"}","token":"ta","firstPaired":"1"}])", {{"a", "\"}", "ta", "1"}}},
      {R"([{"id":"a","name":"\\","token":"ta","firstPaired":"1"}])", {{"a", "\\", "ta", "1"}}},
  };
  for (const auto& c : kCases) EXPECT_EQ(ParseTrustedPeers(c.text), c.peers) << c.text;
}

TEST(TrustedPeersText, CutAnywhereItKeepsTheWholeObjects) {
  const std::string whole = kTwo;
  const size_t firstEnd = whole.find('}');
  const size_t secondEnd = whole.rfind('}');
  for (size_t length = 0; length <= whole.size(); ++length) {
    const size_t expected = (length > firstEnd ? 1u : 0u) + (length > secondEnd ? 1u : 0u);
    EXPECT_EQ(ParseTrustedPeers(whole.substr(0, length)).size(), expected) << length;
  }
}

class TrustedPeersFile : public SettingsFixture {
 protected:
  static void Put(const std::string& text) { SettingsFixture::Put(kFile, text); }
  static std::string Text() { return SettingsFixture::Text(kFile); }
};

TEST_F(TrustedPeersFile, KeepsWhatIsAddedInOrder) {
  EXPECT_TRUE(ListTrustedPeers().empty());
  AddOrUpdateTrustedPeer(kA);
  AddOrUpdateTrustedPeer(kB);
  EXPECT_EQ(Text(), kTwo);
  EXPECT_EQ(FindTrustedPeer("b"), kB);
  EXPECT_EQ(FindTrustedPeer("c"), std::nullopt);
  EXPECT_EQ(CountInPluginLog(":trusted:INFO] added peer id=b name=B\r\n"), 1u);
}

TEST_F(TrustedPeersFile, AKnownPhoneIsReplacedInItsPlace) {
  Put(kTwo);
  AddOrUpdateTrustedPeer({"a", "New", "tn", "9"});
  EXPECT_EQ(ListTrustedPeers(), (std::vector<TrustedPeer>{{"a", "New", "tn", "9"}, kB}));
  EXPECT_EQ(CountInPluginLog(":trusted:INFO] updated peer id=a name=New\r\n"), 1u);
}

TEST_F(TrustedPeersFile, AnEmptyIdIsNobody) {
  Put(R"([{"id":"","name":"x","token":"t"}])");
  AddOrUpdateTrustedPeer({"", "x", "t", "1"});
  RemoveTrustedPeer("");
  EXPECT_EQ(FindTrustedPeer(""), std::nullopt);
  EXPECT_EQ(Text(), R"([{"id":"","name":"x","token":"t"}])");
}

TEST_F(TrustedPeersFile, RemovingTakesEveryPeerOfThatId) {
  Put(R"([{"id":"a","token":"t1"},{"id":"b","name":"B","token":"tb","firstPaired":"2"},)"
      R"({"id":"a","token":"t2"}])");
  EXPECT_EQ(FindTrustedPeer("a")->token, "t1");
  RemoveTrustedPeer("a");
  EXPECT_EQ(ListTrustedPeers(), std::vector<TrustedPeer>{kB});
  RemoveTrustedPeer("b");
  EXPECT_EQ(Text(), "[]\n");
  EXPECT_EQ(CountInPluginLog(":trusted:INFO] removed peer id=a\r\n"), 1u);
}

TEST_F(TrustedPeersFile, RemovingAStrangerWritesAndLogsNothing) {
  const std::string odd = std::string("odd ") + kTwo;
  Put(odd);
  RemoveTrustedPeer("c");
  EXPECT_EQ(Text(), odd);
  EXPECT_EQ(ReadPluginLog(), "");
}

TEST_F(TrustedPeersFile, AnIncompletePeerIsGoneWithTheNextWrite) {
  Put(R"([{"id":"x","name":"no token"},{"id":"a","name":"A","token":"ta","firstPaired":"1"}])");
  AddOrUpdateTrustedPeer(kB);
  EXPECT_EQ(Text(), kTwo);
}

TEST_F(TrustedPeersFile, AFailedWriteIsLoggedOnceAndAddsNobody) {
  EnsureAppSupportDir();
  std::filesystem::create_directories(File(std::string(kFile) + ".tmp"));
  AddOrUpdateTrustedPeer(kA);
  EXPECT_EQ(CountInPluginLog(":trusted:ERROR] write: open("), 1u);
  EXPECT_EQ(CountInPluginLog("added peer"), 0u);
}

TEST_F(TrustedPeersFile, ThatCannotBeReadIsNotWrittenOver) {
  Obstruct(kFile);
  AddOrUpdateTrustedPeer(kA);
  RemoveTrustedPeer(kA.id);
  EXPECT_TRUE(ListTrustedPeers().empty());
  EXPECT_TRUE(std::filesystem::exists(File(kFile) / "in the way"));
  EXPECT_EQ(CountInPluginLog("can't be read and stays as it is"), 1u);
  EXPECT_EQ(CountInPluginLog("added peer"), 0u);
}

TEST_F(TrustedPeersFile, APhonesNameWritesNoLineIntoTheLog) {
  TrustedPeer forger = kA;
  forger.name = "x\r\n[2026-03-01 10:00:00.000 com.ombrette.veldrift:network:INFO] pair: ";
  AddOrUpdateTrustedPeer(forger);
  EXPECT_EQ(CountInPluginLog("\n[2026-03-01 10:00:00.000"), 0u);
  EXPECT_EQ(CountInPluginLog("name=x??[2026-03-01 10:00:00.000"), 1u);
  EXPECT_EQ(FindTrustedPeer(kA.id), forger) << "the file keeps the name as it is";
}

}  // namespace
}  // namespace Veldrift
