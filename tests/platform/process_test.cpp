#include "tools/platform/process.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "platform/file.h"
#include "platform/system.h"
#include "tests/support/child.h"
#include "tests/support/eventually.h"
#include "tests/support/scratch.h"
#include "tools/platform/command_line.h"

namespace Veldrift {
namespace {

TEST(CommandLine, ArgumentsSurviveTheRulesOfSplitting) {
  EXPECT_EQ(QuotedArgument(""), R"("")");
  EXPECT_EQ(QuotedArgument("two words"), R"("two words")");
  EXPECT_EQ(QuotedArgument(R"(C:\a\b)"), R"("C:\a\b")");
  EXPECT_EQ(QuotedArgument(R"(C:\a b\)"), R"("C:\a b\\")");
  EXPECT_EQ(QuotedArgument(R"(say "hi")"), R"("say \"hi\"")");
  EXPECT_EQ(QuotedArgument(R"(\\"x)"), R"("\\\\\"x")");
}

TEST(ChildProcess, DISABLED_EndsWithSeven) { std::_Exit(7); }

TEST(ChildProcess, DISABLED_NeverEnds) {
  WriteWholeFile(ChildFolder() / "running", "yes");
  for (;;) std::this_thread::sleep_for(std::chrono::hours(1));
}

TEST(ChildProcess, ItsExitCodeIsAnswered) {
  const ScratchFolder folder;
  const auto child = StartChild("ChildProcess.DISABLED_EndsWithSeven", folder.Path());
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(child->Wait(), 7);
  EXPECT_EQ(child->Wait(), 7);
}

TEST(ChildProcess, AKilledOneAnswersMinusOne) {
  const ScratchFolder folder;
  const auto child = StartChild("ChildProcess.DISABLED_NeverEnds", folder.Path());
  ASSERT_NE(child, nullptr);
  ASSERT_TRUE(Eventually([&] { return std::filesystem::exists(folder.Path() / "running"); }));
  EXPECT_EQ(child->WaitFor(0), std::nullopt);
  EXPECT_NE(child->Number(), 0u);
  child->Kill();
  EXPECT_EQ(child->WaitFor(60'000'000'000), -1);
  EXPECT_EQ(child->Number(), 0u);
  EXPECT_EQ(child->Wait(), -1);
}

TEST(ChildProcess, WhatIsNotAProgramDoesNotStart) {
  const ScratchFolder folder;
  EXPECT_EQ(StartProcess(folder.Path() / "missing.exe", {}), nullptr);
}

TEST(RunAs, DISABLED_Original) {
  const auto answer =
      RunAs(ChildFolder() / "another one.exe", ChildArguments("RunAs.DISABLED_Copy"));
  std::_Exit(answer.value_or(1));
}

TEST(RunAs, DISABLED_Copy) {
  WriteWholeFile(ChildFolder() / "seen", PathText(GetExecutablePath().filename()));
  std::_Exit(23);
}

TEST(RunAs, TheCopyRunsUnderItsNameAndItsExitCodeComesBack) {
  const ScratchFolder folder;
  const auto child = StartChild("RunAs.DISABLED_Original", folder.Path());
  ASSERT_NE(child, nullptr);
  EXPECT_EQ(child->Wait(), 23);
  EXPECT_EQ(ReadWholeFile(folder.Path() / "seen"), "another one.exe");
}

}  // namespace
}  // namespace Veldrift
