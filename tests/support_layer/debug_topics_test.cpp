#include "support/debug_topics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <locale>
#include <set>
#include <thread>

#include "platform/file.h"
#include "platform/system.h"
#include "support/debug_topic_files.h"
#include "support/paths.h"
#include "tests/support/child.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

using std::chrono::milliseconds;

TEST(DebugTopicSelection, ListsKeysInAnyCaseBetweenCommas) {
  using Flags = std::array<bool, 7>;
  constexpr Flags kAll = {true, true, true, true, true, true, true};
  const struct {
    std::optional<std::string> value;
    Flags selected;
  } kCases[] = {
      {std::nullopt, kAll},
      {"", kAll},
      {"ENCODER", {false, false, true, false, false, false, false}},
      {"transitions , fps", {true, false, false, false, true, false, false}},
      {"\towd,,ui_sync\n", {false, false, false, false, false, true, true}},
      {"controller,telemetry", {false, true, false, true, false, false, false}},
      {"encoders,ui sync,all", {}},
      {"nonsense", {}},
      {"off", {}},
      {",", {}},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(SelectDebugTopics(c.value), c.selected) << c.value.value_or("(unset)");
  }
}

TEST(DebugTopicLine, ItsThreadIsTheHashOfTheNumbersBytes) {
  EXPECT_EQ(ThreadHash(0), 5558979605539197941u);
  EXPECT_EQ(ThreadHash(1), 12478008331234465636u);
  EXPECT_EQ(ThreadHash(0x01020304), 12917768894214892981u);
}

class DebugTopicRun : public testing::Test {
 protected:
  // One run of a process that writes one line to a topic.
  void Run(const std::optional<std::string>& selection, const char* line = "a line") {
    DebugTopicFiles files;
    files.Init(folder_, selection);
    files.Write(DebugTopic::Encoder, line);
  }

  std::set<std::string> Names() const {
    std::set<std::string> names;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(folder_, ignored)) {
      names.insert(PathText(entry.path().filename()));
    }
    return names;
  }

  std::string Content(const std::string& name) const {
    return ReadWholeFile(folder_ / name).value_or("no file");
  }

  // A file of an earlier run, `age` hours old.
  void Put(const std::string& name, int age) {
    std::filesystem::create_directories(folder_);
    WriteWholeFile(folder_ / name, "old");
    std::filesystem::last_write_time(
        folder_ / name, std::filesystem::file_time_type::clock::now() - std::chrono::hours(age));
  }

  ScratchFolder scratch_;
  const std::filesystem::path folder_ = scratch_.Path() / "new" / "folder";
};

TEST_F(DebugTopicRun, ALineShowsTimeThreadWordAndText) {
  Run("encoder", "hello | there");
  EXPECT_THAT(Content("debug_encoder.log"),
              testing::MatchesRegex("....-..-..T..:..:......Z . " +
                                    std::to_string(ThreadHash(ThreadNumber())) +
                                    " . ENCODER . hello . there\r?\n"));
}

class GroupedDigits : public std::numpunct<char> {
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(DebugTopicRun, TheHostsLocaleChangesNoLine) {
  const std::locale before =
      std::locale::global(std::locale(std::locale::classic(), new GroupedDigits));
  Run("encoder");
  std::locale::global(before);
  EXPECT_THAT(Content("debug_encoder.log"),
              testing::HasSubstr(" | " + std::to_string(ThreadHash(ThreadNumber())) + " | "));
}

TEST_F(DebugTopicRun, SelectsTheFilesThatExist) {
  Run("encoder, ui_sync");
  EXPECT_EQ(Names(), (std::set<std::string>{"debug_encoder.log", "debug_ui_sync.log"}));
}

TEST_F(DebugTopicRun, WithoutASelectionHasSevenFiles) {
  Run(std::nullopt);
  EXPECT_EQ(Names(),
            (std::set<std::string>{"debug_transitions.log", "debug_controller.log",
                                   "debug_encoder.log", "debug_telemetry.log", "debug_fps.log",
                                   "debug_owd.log", "debug_ui_sync.log"}));
}

TEST_F(DebugTopicRun, WithNoTopicTouchesNothing) {
  for (int i = 0; i < 8; ++i) Put("debug_encoder_" + std::to_string(i) + ".log", i);
  Put("debug_encoder.log", 1);
  const auto before = Names();
  Run("nonsense");
  EXPECT_EQ(Names(), before);
  EXPECT_EQ(Content("debug_encoder.log"), "old");
}

TEST_F(DebugTopicRun, PutsTheLastOneAside) {
  Run("encoder", "the first run");
  Run("encoder", "the second run");
  const auto names = Names();
  ASSERT_EQ(names.size(), 2u);
  EXPECT_THAT(Content("debug_encoder.log"), testing::HasSubstr("the second run"));
  const std::string old = *std::next(names.begin());
  EXPECT_THAT(old, testing::MatchesRegex("debug_encoder_....-..-..T..-..-......Z.log"));
  EXPECT_THAT(Content(old), testing::HasSubstr("the first run"));
}

TEST_F(DebugTopicRun, KeepsTheFiveNewestOfTheEarlierOnes) {
  // The ages and not the names decide.
  for (int i = 1; i <= 7; ++i) Put("debug_encoder_" + std::to_string(i) + ".log", 10 - i);
  Put("debug_encoder_x.log", 100);
  Put("debug_encoder.txt", 200);
  Put("debug_encoder_y.LOG", 200);
  Put("debug_encoder_z.log.bak", 200);
  Put("debug_fps_1.log", 200);
  std::filesystem::create_directories(folder_ / "debug_encoder_folder.log");
  Run("encoder");
  EXPECT_EQ(Names(), (std::set<std::string>{
                         "debug_encoder.log", "debug_encoder_3.log", "debug_encoder_4.log",
                         "debug_encoder_5.log", "debug_encoder_6.log", "debug_encoder_7.log",
                         "debug_encoder.txt", "debug_encoder_y.LOG", "debug_encoder_z.log.bak",
                         "debug_fps_1.log", "debug_encoder_folder.log"}));
}

TEST_F(DebugTopicRun, LinesOfManyThreadsStayWhole) {
  DebugTopicFiles files;
  files.Init(folder_, "owd");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&files] {
      for (int i = 0; i < 100; ++i) files.Write(DebugTopic::Owd, "0123456789");
    });
  }
  for (auto& thread : threads) thread.join();
  const std::string text = Content("debug_owd.log");
  size_t whole = 0;
  for (size_t at = 0; (at = text.find(" | OWD | 0123456789", at)) != std::string::npos; ++at) {
    ++whole;
  }
  EXPECT_EQ(whole, 400u);
}

TEST_F(DebugTopicRun, AnotherAttemptLeavesOpenFilesAlone) {
  DebugTopicFiles files;
  files.Init(folder_, "encoder");
  files.Write(DebugTopic::Encoder, "the first");
  files.Init(folder_, "encoder");
  files.Write(DebugTopic::Encoder, "the second");
  EXPECT_EQ(Names(), std::set<std::string>{"debug_encoder.log"});
  EXPECT_THAT(Content("debug_encoder.log"), testing::HasSubstr("the first"));
  EXPECT_THAT(Content("debug_encoder.log"), testing::HasSubstr("the second"));
}

TEST_F(DebugTopicRun, WithoutAFolderLosesItsLinesSilently) {
  WriteWholeFile(scratch_.Path() / "new", "in the way");
  EXPECT_NO_THROW(Run("encoder"));
  EXPECT_TRUE(Names().empty());
}

// The process's own topics are set up once, so this is one story.
TEST(DebugTopics, BeginWithTheInitialisationAndCutLongTexts) {
  const ScopedEnvironment selection("VELDRIFT_DEBUG_TOPICS", "encoder");
  const std::string file = DebugLogPath("debug_encoder.log");
  EXPECT_FALSE(IsDebugTopicEnabled(DebugTopic::Encoder));
  DebugTopicLog(DebugTopic::Encoder, "too early");
  EXPECT_FALSE(std::filesystem::exists(PathFromText(file)));

  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) threads.emplace_back(InitDebugTopics);
  for (auto& thread : threads) thread.join();
  EXPECT_TRUE(IsDebugTopicEnabled(DebugTopic::Encoder));
  EXPECT_FALSE(IsDebugTopicEnabled(DebugTopic::Fps));
  EXPECT_FALSE(IsDebugTopicEnabled(DebugTopic::Count));

  DebugTopicLog(DebugTopic::Encoder, "<%s>", std::string(2000, 'm').c_str());
  DebugTopicLog(DebugTopic::Encoder, nullptr);
  DebugTopicLog(DebugTopic::Fps, "off");
  DebugTopicLog(DebugTopic::Count, "nobody's");
  const std::string text = ReadWholeFile(PathFromText(file)).value_or("");
  EXPECT_THAT(text, testing::MatchesRegex(".* ENCODER . <m*\r?\n.* ENCODER . \r?\n"));
  EXPECT_NE(text.find("<" + std::string(1022, 'm')), std::string::npos);
  EXPECT_EQ(text.find(std::string(1023, 'm')), std::string::npos);
  EXPECT_EQ(DebugLogPath(""), PathText(GetLocalDir()));
}

}  // namespace
}  // namespace Veldrift
