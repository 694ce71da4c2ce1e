#include "platform/file.h"

#include <gtest/gtest.h>

#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

class Files : public testing::Test {
 protected:
  std::filesystem::path In(std::string_view name) const {
    return scratch_.Path() / PathFromText(name);
  }

  ScratchFolder scratch_;
};

TEST_F(Files, NamesAndContentsPassUnchanged) {
  const auto path = In("Gr\xC3\xBC\xC3\x9F.bin");
  const std::string bytes("a\r\n\0\x1A\xFFz", 7);
  ASSERT_EQ(WriteWholeFile(path, bytes), WriteResult::Written);
  EXPECT_EQ(ReadWholeFile(path), bytes);
  EXPECT_EQ(PathText(path.filename()), "Gr\xC3\xBC\xC3\x9F.bin");
  EXPECT_EQ(std::filesystem::file_size(path), 7u);
}

TEST_F(Files, AnEmptyFileIsNotAMissingOne) {
  EXPECT_EQ(ReadWholeFile(In("missing")), std::nullopt);
  ASSERT_EQ(WriteWholeFile(In("empty"), ""), WriteResult::Written);
  EXPECT_EQ(ReadWholeFile(In("empty")), "");
}

// A folder stands for what is there and can't be read.
TEST_F(Files, WhatCannotBeReadIsNotMissing) {
  std::string text = "before";
  EXPECT_EQ(ReadWholeFile(In("missing"), text), FileRead::NotFound);
  EXPECT_EQ(text, "");
  EXPECT_EQ(ReadWholeFile(In("no folder") / "missing", text), FileRead::NotFound);
  std::filesystem::create_directories(In("folder"));
  EXPECT_EQ(ReadWholeFile(In("folder"), text), FileRead::Failed);
  EXPECT_EQ(ReadWholeFile(In("folder")), std::nullopt);
}

TEST_F(Files, WritingTruncatesAndTellsWhenItCannotOpen) {
  WriteWholeFile(In("f"), "long text");
  ASSERT_EQ(WriteWholeFile(In("f"), "short"), WriteResult::Written);
  EXPECT_EQ(ReadWholeFile(In("f")), "short");
  EXPECT_EQ(WriteWholeFile(In("no folder") / "f", "x"), WriteResult::OpenFailed);
}

TEST_F(Files, LargeFilesAreReadWhole) {
  const std::string text(1'000'003, 'q');
  ASSERT_EQ(WriteWholeFile(In("large"), text), WriteResult::Written);
  EXPECT_EQ(ReadWholeFile(In("large")), text);
}

TEST_F(Files, ReplacingTakesTheOldFilesPlace) {
  WriteWholeFile(In("new"), "new");
  WriteWholeFile(In("target"), "old");
  std::string error;
  ASSERT_TRUE(ReplaceFile(In("new"), In("target"), error)) << error;
  EXPECT_EQ(ReadWholeFile(In("target")), "new");
  EXPECT_FALSE(std::filesystem::exists(In("new")));
  EXPECT_FALSE(ReplaceFile(In("new"), In("target"), error));
  EXPECT_FALSE(error.empty());
  EXPECT_EQ(ReadWholeFile(In("target")), "new");
}

TEST_F(Files, AppendingCreatesAndKeepsWhatIsThere) {
  EXPECT_TRUE(AppendToFile(In("log"), "one\r\n"));
  EXPECT_TRUE(AppendToFile(In("log"), "two\r\n"));
  EXPECT_EQ(ReadWholeFile(In("log")), "one\r\ntwo\r\n");
  EXPECT_FALSE(AppendToFile(In("no folder") / "log", "x"));
}

}  // namespace
}  // namespace Veldrift
