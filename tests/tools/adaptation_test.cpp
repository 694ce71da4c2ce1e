// What is asked of the plug-in on networks of all kinds, in virtual time.
#include "tools/receiver/adaptation.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/tools/simulated_link.h"

namespace Veldrift {
namespace {

TEST(Adaptation, KnowsWhatParityIsWorth) {
  EXPECT_EQ(PictureLossShare(50'000, 0), 0);
  EXPECT_EQ(PictureLossShare(50'000, 1), 1);
  // One of data and one of parity; two and one; five and one.
  EXPECT_NEAR(PictureLossShare(1'000, 0.1), 0.01, 1e-9);
  EXPECT_NEAR(PictureLossShare(2'000, 0.1), 3 * 0.01 * 0.9 + 0.001, 1e-9);
  EXPECT_NEAR(PictureLossShare(7'200, 0.05), 1 - std::pow(0.95, 6) - 6 * 0.05 * std::pow(0.95, 5),
              1e-9);
  // Many datagrams lose near their mean; without parity none may.
  EXPECT_LT(PictureLossShare(200 * 1'440, 0.05), 0.01);
  EXPECT_GT(PictureLossShare(200 * 1'440, 0.12), 0.7);
  EXPECT_GT(PictureLossShare(300 * 1'440, 0.05), 0.999);
}

struct Case {
  const char* name;
  SimulatedLink link;
  double least;  // share of the pictures of 60 s, the learning included
  double p99Ms;
  bool intra;
};

const Case kCases[] = {
    {"free", {0, 0, 0}, 0.995, 50, false},
    {"5 Mbit/s, small queue", {5, 64e3, 0}, 0.9, 150, false},
    {"5 Mbit/s, large queue", {5, 1e6, 0}, 0.9, 250, false},
    {"15 Mbit/s, small queue", {15, 64e3, 0}, 0.95, 150, false},
    {"15 Mbit/s, large queue", {15, 1e6, 0}, 0.95, 150, false},
    {"50 Mbit/s, small queue", {50, 64e3, 0}, 0.95, 150, false},
    {"50 Mbit/s, large queue", {50, 1e6, 0}, 0.95, 150, false},
    {"400 Mbit/s, small queue", {400, 64e3, 0}, 0.95, 150, false},
    {"1 % lost", {0, 0, 0.01}, 0.95, 50, true},
    {"3 % lost", {0, 0, 0.03}, 0.95, 50, true},
    {"5 % lost", {0, 0, 0.05}, 0.93, 50, true},
    {"50 Mbit/s and 3 % lost", {50, 256e3, 0.03}, 0.9, 150, true},
};

TEST(Adaptation, KeepsAPictureOnEveryNetwork) {
  for (const Case& each : kCases) {
    SCOPED_TRACE(each.name);
    SimulatedStream stream(true);
    stream.link = each.link;
    stream.Run(60);
    EXPECT_GE(stream.Share(), each.least);
    EXPECT_LE(stream.P99(), each.p99Ms);
    EXPECT_GE(stream.firstSeconds, 0);
    EXPECT_LT(stream.firstSeconds, 3);
    EXPECT_EQ(stream.Setting().intra, each.intra);
    if (testing::Test::HasFailure()) {
      for (size_t i = 0; i < stream.steps.size(); ++i) {
        std::printf("%6.2f %s\n", stream.stepSeconds[i], stream.steps[i].sentence.c_str());
      }
    }
  }
}

}  // namespace
}  // namespace Veldrift
