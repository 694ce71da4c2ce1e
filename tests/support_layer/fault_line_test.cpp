#include "support/fault_line.h"

#include <gtest/gtest.h>

#include <string>

#include "support/report_turn.h"

namespace Veldrift {
namespace {

TEST(FixedText, NumbersArePaddedAndLongTextsCut) {
  FixedText text;
  text.AddDecimal(7, 3).Add(" ").AddDecimal(UINT64_MAX).Add(" ").AddUpperCaseHex(0xABC, 8);
  text.Add(" ").AddAddress(0).Add(" ").AddAddress(UINT64_MAX);
  EXPECT_EQ(text.View(), "007 18446744073709551615 00000ABC 0x0 0xffffffffffffffff");
  text.Add(std::string(600, 'x'));
  EXPECT_EQ(text.View().size(), 511u);
  EXPECT_EQ(std::string(text.CString()).size(), 511u);
}

constexpr CalendarTime kTime = {2026, 3, 1, 4, 5, 6, 7};
constexpr const char* kHead = "[2026-03-01 04:05:06.007 com.ombrette.veldrift:crash:FAULT] ";

TEST(FaultLine, ItHasTheLogsShape) {
  Fault fault{.code = 0xC0000005, .address = FixedText().AddHex(0xABCD, 16), .thread = 4711};
  EXPECT_EQ(FormatFaultLine(kTime, fault).View(),
            kHead + std::string("[VEH] fatal exception code=0xC0000005 addr=000000000000abcd "
                                "module=?+0x0 tid=4711\r\n"));
  fault.module = "Veldrift.prm";
  fault.offset = 0x1ABCD;
  EXPECT_EQ(FormatFaultLine(kTime, fault).View(),
            kHead + std::string("[VEH] fatal exception code=0xC0000005 addr=000000000000abcd "
                                "module=Veldrift.prm+0x1abcd tid=4711\r\n"));
}

TEST(FaultLine, AModulesNameNeitherEndsTheLineNorFillsIt) {
  const std::string name = "a\r\nb" + std::string(600, 'x');
  const Fault fault{.code = 1, .address = {}, .module = name, .offset = 2, .thread = 3};
  const std::string line(FormatFaultLine(kTime, fault).View());
  EXPECT_NE(line.find("module=a??bxxx"), std::string::npos) << line;
  EXPECT_TRUE(line.ends_with("x+0x2 tid=3\r\n")) << line;
}

// ---- Whose turn it is ---------------------------------------------------------------------------

TEST(ReportTurn, TheSecondWaitsForTheFirstAndThenHasItsTurn) {
  ReportTurn turn;
  ASSERT_TRUE(turn.Begin(1, 0, [] {}));
  int pauses = 0;
  EXPECT_TRUE(turn.Begin(2, 10, [&] {
    if (++pauses == 3) turn.End(1);
  }));
  EXPECT_EQ(pauses, 3);
  turn.End(1);  // it isn't the first one's any more
  EXPECT_FALSE(turn.Begin(3, 2, [] {}));
  turn.End(2);
  EXPECT_TRUE(turn.Begin(3, 0, [] {}));
}

TEST(ReportTurn, WhoWaitsTooLongGoesWithout) {
  ReportTurn turn;
  ASSERT_TRUE(turn.Begin(1, 0, [] {}));
  int pauses = 0;
  EXPECT_FALSE(turn.Begin(2, 10, [&] { ++pauses; }));
  EXPECT_EQ(pauses, 10);
}

TEST(ReportTurn, ACrashInsideAReportIsTheLastOne) {
  ReportTurn turn;
  ASSERT_TRUE(turn.Begin(1, 0, [] {}));
  EXPECT_FALSE(turn.Begin(1, 10, [] { FAIL() << "it can't wait for itself"; }));
  turn.End(1);
  EXPECT_FALSE(turn.Begin(1, 0, [] {}));
  EXPECT_FALSE(turn.Begin(2, 10, [] { FAIL() << "nobody's turn comes any more"; }));
}

}  // namespace
}  // namespace Veldrift
