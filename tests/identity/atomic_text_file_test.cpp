#include "identity/atomic_text_file.h"

#include "tests/identity/settings_fixture.h"
#include "tests/support/manual_clock.h"

namespace Veldrift {
namespace {

constexpr LogCategory kLog = {kLogSubsystem, "demo"};
constexpr TextFileWriter kWriter = {kLog, "write it"};

// A clock on whose n-th sleep another process finishes its replacement of the file.
class ReplacingClock final : public Clock {
 public:
  ReplacingClock(int atSleep, std::filesystem::path path)
      : left_(atSleep), path_(std::move(path)) {}
  int64_t NowNanos() const override { return 0; }
  void SleepFor(int64_t) override {
    if (--left_ > 0) return;
    std::filesystem::remove_all(path_);
    WriteWholeFile(path_, "whole");
  }
  void WaitUntil(CondVar&, MutexLock&, int64_t) override {}

 private:
  int left_;
  const std::filesystem::path path_;
};

class AtomicTextFile : public SettingsFixture {
 protected:
  ManualClock clock_{0};
};

TEST_F(AtomicTextFile, AnEmptyOneIsReadFiveTimesFiveMillisecondsApart) {
  Put("f", "");
  ManualClock clock(0);
  std::string text;
  EXPECT_EQ(ReadTextFile(File("f"), text, clock), TextFile::Missing);
  EXPECT_EQ(clock.NowNanos(), 20'000'000);
}

TEST_F(AtomicTextFile, AMissingOneIsNotWaitedFor) {
  ManualClock clock(0);
  std::string text = "before";
  EXPECT_EQ(ReadTextFile(File("f"), text, clock), TextFile::Missing);
  EXPECT_EQ(text, "");
  EXPECT_EQ(clock.NowNanos(), 0);
}

TEST_F(AtomicTextFile, WhatCannotBeReadIsTriedAgainAndIsNotMissing) {
  Obstruct("f");
  ManualClock clock(0);
  std::string text = "before";
  EXPECT_EQ(ReadTextFile(File("f"), text, clock), TextFile::Unreadable);
  EXPECT_EQ(text, "");
  EXPECT_EQ(clock.NowNanos(), 20'000'000);
  // Whoever held the file lets it go in time.
  ReplacingClock lastChance(4, File("f"));
  EXPECT_EQ(ReadTextFile(File("f"), text, lastChance), TextFile::Read);
  EXPECT_EQ(text, "whole");
}

TEST_F(AtomicTextFile, AReplacementThatEndsWithinTheAttemptsIsSeen) {
  Put("f", "");
  std::string text;
  ReplacingClock lastChance(4, File("f"));
  EXPECT_EQ(ReadTextFile(File("f"), text, lastChance), TextFile::Read);
  EXPECT_EQ(text, "whole");
  Put("f", "");
  ReplacingClock tooLate(5, File("f"));
  EXPECT_EQ(ReadTextFile(File("f"), text, tooLate), TextFile::Missing);
}

TEST_F(AtomicTextFile, IsReplacedWholeAndLeavesNothingBeside) {
  Put("f", "the old and longer text");
  EXPECT_TRUE(ReplaceTextFile(File("f"), "new\n", kWriter, clock_));
  EXPECT_EQ(Text("f"), "new\n");
  EXPECT_FALSE(std::filesystem::exists(File("f.tmp")));
}

TEST_F(AtomicTextFile, AReplacementThatIsInTheWayOfAReaderIsTriedAgain) {
  Obstruct("f");
  ReplacingClock letsGo(4, File("f"));
  EXPECT_TRUE(ReplaceTextFile(File("f"), "new", kWriter, letsGo));
  EXPECT_EQ(Text("f"), "new");
}

TEST_F(AtomicTextFile, AFailedRenameIsLoggedAndTakesItsFileAway) {
  Obstruct("f");
  EXPECT_FALSE(ReplaceTextFile(File("f"), "new", kWriter, clock_));
  EXPECT_FALSE(std::filesystem::exists(File("f.tmp")));
  EXPECT_EQ(CountInPluginLog(":demo:ERROR] write it: rename(" + PathText(File("f.tmp")) + " -> " +
                             PathText(File("f")) + ") failed: "),
            1u);
}

TEST_F(AtomicTextFile, AFailedOpenIsLogged) {
  EXPECT_FALSE(ReplaceTextFile(File("f"), "new", kWriter, clock_));
  EXPECT_EQ(
      CountInPluginLog(":demo:ERROR] write it: open(" + PathText(File("f.tmp")) + ") failed\r\n"),
      1u);
}

}  // namespace
}  // namespace Veldrift
