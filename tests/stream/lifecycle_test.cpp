// The module loaded, played into and unloaded over and over in one process, as a host does that
// switches its output devices.
#include <gtest/gtest.h>

#include "tests/stream/stage.h"

namespace Veldrift {
namespace {

TEST(Lifecycle, TenLoadsWithSeveralInstancesAndPhonesLeaveNothingBehind) {
  if (HostIsWindows()) GTEST_SKIP() << "Wine keeps a registry key for each listing of encoders";
  Stage stage;
  ASSERT_NO_FATAL_FAILURE(
      stage.StartHost({"--size", "320x240", "--fps", "30", "--rounds", "10", "--instances", "3",
                       "--frames", "45", "--audio-road", "pull"}));
  // A phone goes when the module does; the next one comes by its token.
  while (!stage.Host().Ended()) {
    StandIn& phone = stage.StartPhone("a", {"--codec", "h264", "--no-reconnect"});
    ASSERT_TRUE(Eventually([&] { return phone.Ended() || stage.Host().Ended(); }));
    phone.Kill();
  }
  EXPECT_EQ(stage.Host().Wait(), 0) << testing::PrintToString(stage.Host().Complaints());
  const nlohmann::json summary = stage.Host().Summary();
  ASSERT_EQ(summary["rounds"].size(), 10U);
  EXPECT_EQ(summary["rounds"].front(), summary["rounds"].back());
  EXPECT_EQ(summary["suites_held"], 0);
  EXPECT_GE(stage.CountInHostLog("pair: trusted reconnect"), 3U);
  // Of an instance that doesn't play, the phone hears the same greeting.
  EXPECT_GE(stage.CountInHostLog("new client — forcing IDR"), 9U);
}

}  // namespace
}  // namespace Veldrift
