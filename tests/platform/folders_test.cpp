#include "platform/folders.h"

#include <gtest/gtest.h>

#include <map>

namespace Veldrift {
namespace {

EnvironmentLookup Variables(std::map<std::string, std::string> values) {
  return [values](const char* name) -> std::optional<std::string> {
    const auto found = values.find(name);
    if (found == values.end()) return std::nullopt;
    return found->second;
  };
}

TEST(Folders, WindowsSettingsFollowTheOrderOfSources) {
  const auto all = Variables({{"APPDATA", "A:\\r"}, {"USERPROFILE", "U:\\me"}});
  const auto profileOnly = Variables({{"USERPROFILE", "U:\\me"}});
  const auto emptyOnes = Variables({{"APPDATA", ""}, {"USERPROFILE", ""}});
  EXPECT_EQ(WindowsRoamingFolder("K:\\known", all), "K:\\known");
  EXPECT_EQ(WindowsRoamingFolder(std::nullopt, all), "A:\\r");
  EXPECT_EQ(WindowsRoamingFolder("", all), "A:\\r");
  EXPECT_EQ(WindowsRoamingFolder(std::nullopt, profileOnly), "U:\\me\\AppData\\Roaming");
  EXPECT_EQ(WindowsRoamingFolder(std::nullopt, emptyOnes), "C:\\");
}

TEST(Folders, WindowsLogsFollowTheOrderOfSources) {
  EXPECT_EQ(WindowsLocalFolder(Variables({{"LOCALAPPDATA", "L:\\l"}, {"USERPROFILE", "U:\\me"}})),
            "L:\\l");
  EXPECT_EQ(WindowsLocalFolder(Variables({{"LOCALAPPDATA", ""}, {"USERPROFILE", "U:\\me"}})),
            "U:\\me\\AppData\\Local");
  EXPECT_EQ(WindowsLocalFolder(Variables({{"APPDATA", "A:\\r"}})), ".");
}

TEST(Folders, ElsewhereTheDesktopConventionsHold) {
  const auto home = Variables({{"HOME", "/home/me"}});
  EXPECT_EQ(PosixRoamingFolder(home), "/home/me/.config");
  EXPECT_EQ(PosixLocalFolder(home), "/home/me/.local/state");
  const auto moved =
      Variables({{"HOME", "/home/me"}, {"XDG_CONFIG_HOME", "/c"}, {"XDG_STATE_HOME", "/s"}});
  EXPECT_EQ(PosixRoamingFolder(moved), "/c");
  EXPECT_EQ(PosixLocalFolder(moved), "/s");
  const auto relative =
      Variables({{"HOME", "/home/me"}, {"XDG_CONFIG_HOME", "c"}, {"XDG_STATE_HOME", "../s"}});
  EXPECT_EQ(PosixRoamingFolder(relative), "/home/me/.config");
  EXPECT_EQ(PosixLocalFolder(relative), "/home/me/.local/state");
  EXPECT_EQ(PosixRoamingFolder(Variables({})), "/");
  EXPECT_EQ(PosixLocalFolder(Variables({})), ".");
}

}  // namespace
}  // namespace Veldrift
