// Settings of a test's own, and their files' texts.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "platform/file.h"
#include "support/paths.h"
#include "tests/support/scratch.h"

namespace Veldrift {

// Moves the plug-in's folders under a scratch folder for one test.
class SettingsFixture : public testing::Test {
 protected:
  void SetUp() override { UseFoldersUnder(scratch_.Path()); }
  void TearDown() override { UseFoldersUnder(before_); }

  static std::filesystem::path File(const std::string& name) { return GetAppSupportDir() / name; }

  static void Put(const std::string& name, const std::string& text) {
    EnsureAppSupportDir();
    WriteWholeFile(File(name), text);
  }

  static std::string Text(const std::string& name) {
    return ReadWholeFile(File(name)).value_or("no file");
  }

  // Makes every replacement of the file fail: a folder that isn't empty stands in its place.
  static void Obstruct(const std::string& name) {
    std::filesystem::create_directories(File(name) / "in the way");
  }

  const std::filesystem::path before_ = GetAppSupportDir().parent_path().parent_path();
  ScratchFolder scratch_;
};

}  // namespace Veldrift
