#include "tools/host/log_findings.h"

#include <gtest/gtest.h>

#include <string>

namespace Veldrift {
namespace {

LogFindings FindingsIn(std::initializer_list<const char*> lines) {
  LogFindings findings;
  for (const char* line : lines) {
    const auto entry = ParseLogLine(line);
    EXPECT_TRUE(entry.has_value()) << line;
    if (entry) findings.Note(*entry);
  }
  return findings;
}

TEST(LogFindings, OfAMachineWithAnAdapterThatIsGivenUp) {
  const LogFindings findings = FindingsIn({
      "[2026-03-01 10:00:00.000 veldrift:encoder:INFO] D3D11 device on adapter: \"Desk 9000\"",
      "[2026-03-01 10:00:00.001 veldrift:encoder:INFO] [BigOne] GPU-resident status: off (no)",
      "[2026-03-01 10:00:01.000 veldrift:encoder:INFO] [BigOne] GPU-resident status: ACTIVE (yes)",
      "[2026-03-01 10:00:02.000 veldrift:encoder:ERROR] [BigOne] plane-UAV create failed — "
      "latching CPU fallback",
      "[2026-03-01 10:00:03.000 veldrift:encoder:ERROR] [Sunshine] Step 4 GPU FALLBACK to scalar "
      "at frame 7 — shader/upload/readback failed",
  });
  EXPECT_EQ(findings.adapter, "Desk 9000");
  EXPECT_EQ(findings.noAdapter, "");
  EXPECT_EQ(findings.resident, "ACTIVE (yes)");
  ASSERT_EQ(findings.latches.size(), 2u);
  EXPECT_TRUE(findings.latches[0].starts_with("[BigOne] plane-UAV")) << findings.latches[0];
  EXPECT_FALSE(findings.noEncoder);
  EXPECT_EQ(findings.errorCount, 2u);
}

TEST(LogFindings, OfAMachineWithoutAdapterOrEncoder) {
  const LogFindings findings = FindingsIn({
      "[2026-03-01 10:00:00.000 veldrift:encoder:INFO] D3D11CreateDevice failed 0x887a0004 — "
      "continuing CPU-only",
      "[2026-03-01 10:00:00.001 veldrift:transmit:ERROR] encoder Configure failed (64x64 @ 30 fps)",
      "[2026-03-01 10:00:01.000 veldrift:transmit:FAULT] encoder stall: no output for 2000 ms "
      "while "
      "feeding — rebuilding session 64x64 @ 30 fps",
  });
  EXPECT_EQ(findings.adapter, "");
  EXPECT_TRUE(findings.noAdapter.starts_with("D3D11CreateDevice failed 0x887a0004"));
  EXPECT_TRUE(findings.noEncoder);
  EXPECT_EQ(findings.stalls, 1u);
  EXPECT_EQ(findings.errorCount, 2u);
}

// What a phone calls itself stands in the log as well.
TEST(LogFindings, CountEveryErrorKeepTheFirstFiveAndBelieveNoNames) {
  LogFindings findings;
  for (int i = 0; i < 7; ++i) findings.Note({"network", "fault " + std::to_string(i), "ERROR"});
  findings.Note({"network", "pair: OK id=a name=D3D11 device on adapter: \"x\"", "INFO"});
  findings.Note({"network", "pair: OK id=a name=encoder Configure failed (", "INFO"});
  EXPECT_EQ(findings.errorCount, 7u);
  ASSERT_EQ(findings.errors.size(), 5u);
  EXPECT_EQ(findings.errors[4], "network: fault 4");
  EXPECT_EQ(findings.adapter, "");
  EXPECT_FALSE(findings.noEncoder);
}

}  // namespace
}  // namespace Veldrift
