#include "support/log_line.h"

#include <gtest/gtest.h>

#include "platform/file.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

constexpr CalendarTime kTime = {2026, 3, 1, 4, 5, 6, 7};
constexpr LogCategory kCategory = {"com.example", "demo"};
constexpr const char* kHead = "[2026-03-01 04:05:06.007 com.example:demo:INFO] ";

LogLine Format(const LogCategory& category, int32_t level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const LogLine line = FormatLogLine(kTime, category, level, format, arguments);
  va_end(arguments);
  return line;
}

std::string Text(const LogLine& line) { return {line.text.data(), line.length}; }

TEST(LogLine, AnnotationsAreRemovedAndNothingElse) {
  const struct {
    const char* format;
    const char* stripped;
  } kCases[] = {
      {"%{public}s", "%s"},
      {"a=%{public}s b=%{private,mask}d.", "a=%s b=%d."},
      {"100%% of {braces}", "100%% of {braces}"},
      {"%%{public}s", "%%s"},  // the scan knows no escape
      {"kept %{never closed %d", "kept %"},
      {"%{}s", "%s"},
      {"%", "%"},
      {"", ""},
  };
  for (const auto& c : kCases) EXPECT_STREQ(StripAnnotations(c.format).data(), c.stripped);
}

TEST(LogLine, AFormatIsUsedUpToItsLastByteThatFits) {
  EXPECT_EQ(std::string(StripAnnotations(std::string(2000, 'f').c_str()).data()),
            std::string(1023, 'f'));
  // The 1,023 are counted behind the removal.
  const std::string annotated = "%{public}s" + std::string(2000, 'f');
  EXPECT_EQ(std::string(StripAnnotations(annotated.c_str()).data()), "%s" + std::string(1021, 'f'));
}

TEST(LogLine, ItsHeadTellsTimeCategoryAndLevel) {
  EXPECT_EQ(Text(Format(kCategory, kLogInfo, "n=%{public}d %s", 5, "x")),
            std::string(kHead) + "n=5 x\r\n");
  EXPECT_EQ(Text(Format({nullptr, nullptr}, kLogError, "e")),
            "[2026-03-01 04:05:06.007 ?:?:ERROR] e\r\n");
  EXPECT_EQ(Text(Format(kCategory, kLogDebug, "")),
            "[2026-03-01 04:05:06.007 com.example:demo:DEBUG] \r\n");
  EXPECT_EQ(Text(Format(kCategory, kLogFault, "f")),
            "[2026-03-01 04:05:06.007 com.example:demo:FAULT] f\r\n");
  EXPECT_EQ(Text(Format(kCategory, 7, "x")),
            "[2026-03-01 04:05:06.007 com.example:demo:LOG] x\r\n");
}

TEST(LogLine, ALongMessageIsCutAndKeepsItsEndOfLine) {
  const std::string message(5000, 'm');
  EXPECT_EQ(Text(Format(kCategory, kLogInfo, "%s", message.c_str())),
            kHead + std::string(1023, 'm') + "\r\n");
}

TEST(LogLine, WhatIsNotATextIsReplacedByteForByte) {
  const struct {
    const char* message;
    const char* printed;
  } kCases[] = {
      {"a\r\n[2026 b\tc\x1B[2J\x7F", "a??[2026 b?c?[2J?"},
      {"gr\xC3\xBCn \xE2\x86\x92 \xF0\x9F\x8E\xA5", "gr\xC3\xBCn \xE2\x86\x92 \xF0\x9F\x8E\xA5"},
      {"\xFF\xFE stranger", "?? stranger"},
      {"\xC2\x85 \xC2\x9B", "?? ??"},                 // control characters above ASCII
      {"\xC0\x8A \xE0\x80\x8A", "?? ???"},            // a line feed, longer than need be
      {"\xED\xA0\x80 \xF4\x90\x80\x80", "??? ????"},  // no characters
      {"cut \xE2\x86", "cut ??"},
      {"\xE2\x86z \x86", "??z ?"},
  };
  for (const auto& [message, printed] : kCases) {
    EXPECT_EQ(Text(Format(kCategory, kLogInfo, "%s", message)),
              std::string(kHead) + printed + "\r\n");
  }
  // The cut leaves half a character.
  const std::string full = std::string(1022, 'm') + "\xC3\xBC";
  EXPECT_EQ(Text(Format(kCategory, kLogInfo, "%s", full.c_str())),
            kHead + std::string(1022, 'm') + "?\r\n");
}

TEST(LogLine, ALineBeyondItsBufferIsCutAndStaysAText) {
  const std::string subsystem(1500, 's');
  const LogLine line = Format({subsystem.c_str(), "demo"}, kLogInfo, "gone");
  EXPECT_EQ(line.length, 1279u);
  EXPECT_EQ(line.text[1279], '\0');
}

TEST(MinimumLogLevel, OnlyTheOneExactValueShowsDebugLines) {
  EXPECT_EQ(MinimumLogLevel("1"), kLogDebug);
  for (const char* value : {"11", "true", "0", "", " 1", "1 "}) {
    EXPECT_EQ(MinimumLogLevel(value), kLogInfo) << value;
  }
  EXPECT_EQ(MinimumLogLevel(std::nullopt), kLogInfo);
}

class LogFile : public testing::Test {
 protected:
  void FillTo(size_t bytes) { WriteWholeFile(path_, std::string(bytes, 'o')); }
  size_t Size() const { return ReadWholeFile(path_).value_or("").size(); }

  ScratchFolder scratch_;
  const std::filesystem::path path_ = scratch_.Path() / "a" / "b" / "plugin.log";
  const std::filesystem::path old_ = scratch_.Path() / "a" / "b" / "plugin.log.1";
};

TEST_F(LogFile, ItsFoldersAreMade) {
  AppendRotating(path_, "line\r\n");
  AppendRotating(path_, "next\r\n");
  EXPECT_EQ(ReadWholeFile(path_), "line\r\nnext\r\n");
}

TEST_F(LogFile, FourMebibytesStayAndOneByteMoreIsPutAside) {
  AppendRotating(path_, "x");
  WriteWholeFile(old_, "older");
  FillTo(4'194'304);
  AppendRotating(path_, "n");
  EXPECT_EQ(Size(), 4'194'305u);
  EXPECT_EQ(ReadWholeFile(old_), "older");
  AppendRotating(path_, "first of the new");
  EXPECT_EQ(ReadWholeFile(path_), "first of the new");
  EXPECT_EQ(std::filesystem::file_size(old_), 4'194'305u);
}

TEST_F(LogFile, OneThatCannotBeMovedAsideIsLost) {
  AppendRotating(path_, "x");
  std::filesystem::create_directories(old_ / "in the way");
  FillTo(4'194'305);
  AppendRotating(path_, "n");
  EXPECT_EQ(ReadWholeFile(path_), "n");
}

}  // namespace
}  // namespace Veldrift
