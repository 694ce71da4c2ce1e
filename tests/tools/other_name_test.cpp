// What the host leaves in a shared folder when it runs under another name.
#include "tools/host/other_name.h"

#include <gtest/gtest.h>

#include "platform/file.h"
#include "tests/support/scratch.h"
#include "tools/platform/folder_hold.h"

namespace Veldrift {
namespace {

TEST(OtherName, WhatKilledRunsHaveLeftIsRemovedAndNothingElse) {
  const ScratchFolder root;
  const auto make = [&root](const char* name) {
    const std::filesystem::path folder = root.Path() / name;
    std::filesystem::create_directories(folder);
    EXPECT_EQ(WriteWholeFile(folder / "premiere", "x"), WriteResult::Written);
    return folder;
  };
  const auto live = make("veldrift-host-1"), killed = make("veldrift-host-2");
  const auto beginning = make("veldrift-host-3"), foreign = make("somebody-elses");
  const auto hold = FolderHold::Take(live);
  ASSERT_NE(hold, nullptr);
  EXPECT_EQ(FolderHold::Take(live), nullptr);
  ASSERT_NE(FolderHold::Take(killed), nullptr);
  ASSERT_NE(FolderHold::Take(foreign), nullptr);

  RemoveAbandonedNames(root.Path());
  EXPECT_TRUE(std::filesystem::exists(live / "premiere"));
  EXPECT_FALSE(std::filesystem::exists(killed));
  EXPECT_TRUE(std::filesystem::exists(beginning / "premiere"));
  EXPECT_TRUE(std::filesystem::exists(foreign / "premiere"));
}

}  // namespace
}  // namespace Veldrift
