#include "tests/support/thread_shortage.h"

#include "tests/entry/host_entry_fixture.h"

namespace Veldrift {
namespace {

// Its playback would stand for ever.
TEST_F(HostEntry, AHostIsToldThatItsClockCannotBeStarted) {
  Host::InstanceRecord record{};
  if (table.CreateInstance(&record) != Host::kNoError) GTEST_SKIP() << "no encoder here";
  const Host::ClockRecord playing{[](void*, int64_t) {}, nullptr, Host::kPlayModePlaying};
  RefuseNextThread();
  EXPECT_EQ(table.StartClock(&record, &playing), Host::kErrorUnsupported);
  EXPECT_EQ(table.StopClock(&record), Host::kNoError);
  EXPECT_EQ(table.StartClock(&record, &playing), Host::kNoError);
  EXPECT_EQ(table.DisposeInstance(&record), Host::kNoError);
  EXPECT_EQ(table.Shutdown(), Host::kNoError);
}

}  // namespace
}  // namespace Veldrift
