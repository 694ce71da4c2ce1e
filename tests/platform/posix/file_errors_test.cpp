// What only this system's files can do.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "platform/file.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

TEST(FileErrors, AFileThatCannotBeOpenedIsNotMissing) {
  const ScratchFolder folder;
  std::filesystem::create_symlink("loop", folder.Path() / "loop");
  std::string text;
  EXPECT_EQ(ReadWholeFile(folder.Path() / "loop", text), FileRead::Failed);
  WriteWholeFile(folder.Path() / "file", "x");
  EXPECT_EQ(ReadWholeFile(folder.Path() / "file" / "below", text), FileRead::NotFound);
}

TEST(FileErrors, WhatHoldsSecretsIsItsOwnersAlone) {
  const ScratchFolder folder;
  const mode_t before = umask(0);
  WriteWholeFile(folder.Path() / "settings", "x");
  AppendToFile(folder.Path() / "log", "x");
  umask(before);
  for (const char* name : {"settings", "log"}) {
    EXPECT_EQ(std::filesystem::status(folder.Path() / name).permissions(),
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write)
        << name;
  }
}

}  // namespace
}  // namespace Veldrift
