#include "support/paths.h"

#include <gtest/gtest.h>

#include "platform/file.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

TEST(HostDetection, TheExecutablesNameTellsTheHost) {
  const struct {
    const char* file;
    HostApplication host;
  } kCases[] = {
      {"AfterFX.exe", HostApplication::AfterEffects},
      {"C:\\Program Files\\Editing\\AFTERFX.EXE", HostApplication::AfterEffects},
      {"Some Media Encoder.exe", HostApplication::MediaEncoder},
      {"ame.exe", HostApplication::MediaEncoder},
      {"Some Premiere Pro.exe", HostApplication::Premiere},
      {"/opt/hosts/premiere", HostApplication::Premiere},
      {"Premiere Game.exe", HostApplication::MediaEncoder},     // "ame" is looked for first
      {"Premiere AfterFX.exe", HostApplication::AfterEffects},  // and "afterfx" before both
      {"C:\\Premiere\\notepad.exe", HostApplication::UnknownHost},
      {"C:/AfterFX/premiere/x.exe", HostApplication::UnknownHost},
      {"notepad.exe", HostApplication::UnknownHost},
      {"", HostApplication::UnknownHost},
  };
  for (const auto& c : kCases) EXPECT_EQ(HostFromExecutable(c.file), c.host) << c.file;
}

TEST(HostDetection, OtherAlphabetsDoNotHideTheName) {
  EXPECT_EQ(HostFromExecutable(PathFromText("\xC3\x9C"
                                            "ber Premiere \xC3\xA9.exe")),
            HostApplication::Premiere);
}

TEST(HostDetection, ATestIsNoHost) {
  EXPECT_EQ(DetectHostApplication(), HostApplication::UnknownHost);
}

TEST(HostTraits, EachHostHasItsPortNameAndFiles) {
  const struct {
    HostApplication host;
    uint16_t port;
    const char* text;
    const char* log;
    const char* trusted;
  } kCases[] = {
      {HostApplication::Premiere, 47100, "Premiere", "plugin.log", "trusted.json"},
      {HostApplication::AfterEffects, 47110, "After Effects", "plugin-ae.log", "trusted-ae.json"},
      {HostApplication::MediaEncoder, 47120, "Media Encoder", "plugin-ame.log", "trusted-ame.json"},
      {HostApplication::UnknownHost, 47130, "Unknown Host", "plugin-x.log", "trusted-x.json"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(TraitsOf(c.host).controlPort, c.port);
    EXPECT_STREQ(TraitsOf(c.host).displayText, c.text);
    EXPECT_EQ(PerHostFileName(c.host, "plugin", ".log"), c.log);
    EXPECT_EQ(PerHostFileName(c.host, "trusted", ".json"), c.trusted);
  }
}

// Moves the plug-in's folders for one test.
class AppSupportDir : public testing::Test {
 protected:
  void SetUp() override { UseFoldersUnder(scratch_.Path()); }
  void TearDown() override { UseFoldersUnder(before_); }

  const std::filesystem::path before_ = GetAppSupportDir().parent_path().parent_path();
  ScratchFolder scratch_;
};

TEST_F(AppSupportDir, IsMadeOnceAndFoundAgain) {
  EXPECT_EQ(GetAppSupportDir(), scratch_.Path() / "settings" / "Veldrift");
  EXPECT_FALSE(std::filesystem::exists(GetAppSupportDir()));
  EXPECT_TRUE(EnsureAppSupportDir());
  EXPECT_TRUE(std::filesystem::is_directory(GetAppSupportDir()));
  EXPECT_TRUE(EnsureAppSupportDir());
}

TEST_F(AppSupportDir, APlainFileInItsPlaceIsNoFolderAndNoNews) {
  std::filesystem::create_directories(scratch_.Path() / "settings");
  WriteWholeFile(GetAppSupportDir(), "in the way");
  EXPECT_FALSE(EnsureAppSupportDir());
  EXPECT_EQ(ReadPluginLog(), "");
}

TEST_F(AppSupportDir, AFailureToMakeItIsLogged) {
  WriteWholeFile(scratch_.Path() / "settings", "in the way");
  EXPECT_FALSE(EnsureAppSupportDir());
  EXPECT_EQ(CountInPluginLog(":paths_win:ERROR] EnsureAppSupportDir: create_directories(" +
                             PathText(GetAppSupportDir()) + ") failed: "),
            1u);
}

TEST(ComputerName, IsNeverEmptyAndHasNoDomain) {
  const std::string name = GetHostComputerName();
  EXPECT_FALSE(name.empty());
  EXPECT_EQ(name.find('.'), std::string::npos);
  EXPECT_EQ(name.find('\0'), std::string::npos);
}

}  // namespace
}  // namespace Veldrift
