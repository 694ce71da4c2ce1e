// A process that is killed while it writes leaves whole files behind, and a reader beside it never
// sees anything but whole files.
#include <cstdio>
#include <random>

#include "identity/install_identity.h"
#include "identity/trusted_peers.h"
#include "identity/trusted_peers_text.h"
#include "tests/identity/settings_fixture.h"
#include "tests/support/child.h"

namespace Veldrift {
namespace {

constexpr int kKills = 200;
constexpr unsigned kSeed = 20260301;
constexpr const char* kTrustedFile = "trusted-x.json";

// Long, so that a write in pieces would have time to be interrupted.
std::string LongName(int turn) { return std::string(100'000, turn % 2 == 0 ? 'a' : 'b'); }
TrustedPeer PeerOf(int turn) { return {"phone", LongName(turn), "token", "now"}; }

std::string IdentityText(int turn) {
  return "{\"id\":\"i\",\"name\":\"" + LongName(turn) +
         "\",\"discoverable\":\"true\",\"enableAsyncHwEncoders\":\"false\"}\n";
}

class KilledWriter : public SettingsFixture {
 protected:
  void SetUp() override {
    SettingsFixture::SetUp();
    Put("install.json", IdentityText(0));
    Put(kTrustedFile, FormatTrustedPeers({PeerOf(0)}));
  }

  static void ExpectWholeFiles() {
    const std::string identity = Text("install.json");
    EXPECT_TRUE(identity == IdentityText(0) || identity == IdentityText(1))
        << identity.size() << " bytes";
    const std::string trusted = Text(kTrustedFile);
    EXPECT_TRUE(trusted == FormatTrustedPeers({PeerOf(0)}) ||
                trusted == FormatTrustedPeers({PeerOf(1)}))
        << trusted.size() << " bytes";
  }

  // Returns as soon as the writer has changed the file so many times, as far as can be seen from
  // here.
  static void WatchChanges(int count) {
    char last = Text("install.json").at(20);
    while (count > 0) {
      const std::string text = Text("install.json");
      ASSERT_GT(text.size(), 100u) << text;
      if (text[20] != last) --count;
      last = text[20];
    }
  }
};

TEST_F(KilledWriter, DISABLED_WritesUntilItIsKilled) {
  UseFoldersUnder(ChildFolder());
  for (int turn = 1;; ++turn) {
    SetDisplayName(LongName(turn));
    AddOrUpdateTrustedPeer(PeerOf(turn));
  }
}

TEST_F(KilledWriter, LeavesTheOldFilesOrTheNewOnes) {
  std::printf("seed %u\n", kSeed);
  std::mt19937 random(kSeed);
  for (int kill = 0; kill < kKills && !HasFailure(); ++kill) {
    const auto writer = StartChild("KilledWriter.DISABLED_WritesUntilItIsKilled", scratch_.Path());
    ASSERT_NE(writer, nullptr);
    WatchChanges(1 + static_cast<int>(random() % 3));
    // Some way into the next write.
    for (unsigned reads = random() % 16; reads > 0; --reads) ExpectWholeFiles();
    writer->Kill();
    EXPECT_EQ(writer->Wait(), -1);
    ExpectWholeFiles();
  }
  EXPECT_EQ(LoadOrCreateInstallIdentity().id, "i");
  EXPECT_EQ(ListTrustedPeers().size(), 1u);
}

}  // namespace
}  // namespace Veldrift
