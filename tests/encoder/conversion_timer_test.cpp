#include "encoder/conversion_timer.h"

#include <gtest/gtest.h>

#include "platform/file.h"
#include "support/paths.h"
#include "tests/support/child.h"
#include "tests/support/scratch.h"

namespace Veldrift {
namespace {

TEST(ConversionTimer, DISABLED_TakesTheTimesOfTwoLinesAndABit) {
  UseFoldersUnder(ChildFolder());
  ConversionTimer timer;
  for (int frame = 0; frame < 119; ++frame) timer.Add(2'000'000, "CPU-readback");
  timer.Add(1'402'000'000, "GPU-resident");
  for (int frame = 0; frame < 120; ++frame) timer.Add(500'400, "GPU-resident(async)");
  for (int frame = 0; frame < 119; ++frame) timer.Add(9'000'000, "GPU-resident(async)");
}

// They are lines of the debug level, which is chosen as the process starts.
TEST(ConversionTimer, TellsTheMeanOfEach120Frames) {
  const ScratchFolder folder;
  const ScopedEnvironment debug("VD_LOG_DEBUG", "1");
  const auto child =
      StartChild("ConversionTimer.DISABLED_TakesTheTimesOfTwoLinesAndABit", folder.Path());
  ASSERT_NE(child, nullptr);
  ASSERT_EQ(child->Wait(), 0);
  const std::string log =
      ReadWholeFile(folder.Path() / "local" / "Veldrift" / "plugin-x.log").value_or("no log");
  EXPECT_EQ(CountIn(log, "[dx] render-thread convert+submit avg="), 2u) << log;
  EXPECT_EQ(CountIn(log,
                    "encoder:DEBUG] [dx] render-thread convert+submit avg=13.667 ms over 120 "
                    "frames (GPU-resident)\r\n"),
            1u)
      << log;
  EXPECT_EQ(CountIn(log,
                    "encoder:DEBUG] [dx] render-thread convert+submit avg=0.500 ms over 120 "
                    "frames (GPU-resident(async))\r\n"),
            1u)
      << log;
}

}  // namespace
}  // namespace Veldrift
