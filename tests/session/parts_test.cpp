// The session's small parts, on their own.
#include <gtest/gtest.h>

#include "session/engine_list.h"
#include "session/frame_cache.h"
#include "session/frame_geometry.h"
#include "session/host_suites.h"
#include "session/stall_watch.h"
#include "support/clock.h"

namespace Veldrift {
namespace {

constexpr int64_t kMilli = kNanosPerMilli;
constexpr int64_t kSecond = kNanosPerSecond;

TEST(CappedSize, PutsTheShorterSideOnTheCap) {
  struct Row {
    FrameSize source;
    int32_t cap;
    FrameSize target;
  };
  const Row rows[] = {
      {{3840, 2160}, 720, {1280, 720}},   {{1080, 1920}, 721, {720, 1282}},
      {{1920, 1080}, 0, {1920, 1080}},    {{1921, 1081}, 1081, {1921, 1081}},
      {{1921, 1081}, 2000, {1921, 1081}}, {{1921, 1081}, 1080, {1918, 1080}},
      {{4000, 20}, 17, {3400, 16}},       {{16, 16}, 4, {16, 16}},
  };
  for (const Row& row : rows) {
    const FrameSize target = CappedSize(row.source, row.cap);
    EXPECT_EQ(target.width, row.target.width) << row.source.width << " cap " << row.cap;
    EXPECT_EQ(target.height, row.target.height) << row.source.width << " cap " << row.cap;
  }
}

TEST(WithinTolerance, IsATwentiethOfTheCurrentSize) {
  EXPECT_TRUE(WithinTolerance({1000, 1000}, {1050, 950}));
  EXPECT_FALSE(WithinTolerance({1000, 1000}, {1051, 1000}));
  EXPECT_FALSE(WithinTolerance({1000, 1000}, {1000, 949}));
}

TEST(StallWatch, TellsAfterThreeSecondsAndThenEveryFive) {
  StallWatch watch;
  std::vector<int64_t> told;
  for (int64_t now = 100 * kSecond; now < 112 * kSecond; now += 100 * kMilli) {
    if (watch.Fed(now) != 0) told.push_back(now / kMilli);
  }
  // More than 3 s after the first frame; then more than 5 s, and more than 3 s, after that.
  EXPECT_EQ(told, (std::vector<int64_t>{103'100, 108'200}));
}

TEST(StallWatch, OutputAndPausesRestartIt) {
  StallWatch watch;
  EXPECT_EQ(watch.Fed(100 * kSecond), 0);
  for (int64_t now = 100 * kSecond; now < 110 * kSecond; now += 500 * kMilli) {
    watch.Output(now);
    EXPECT_EQ(watch.Fed(now), 0);
  }
  EXPECT_EQ(watch.Fed(200 * kSecond), 0);  // the host was paused
  EXPECT_EQ(watch.Fed(200 * kSecond + 900 * kMilli), 0);
  EXPECT_EQ(watch.Fed(201 * kSecond + 800 * kMilli), 0);
}

TEST(FrameCache, CopiesFourTimesASecondAndNotBeyond32MiB) {
  FrameCache cache;
  cache.Open();
  std::vector<uint8_t> pixels(33'554'433, 1);
  cache.Store(pixels.data(), 16, 16, 64, kSecond);
  EXPECT_EQ(cache.Copy().bytes.size(), 1024U);
  pixels[0] = 2;
  cache.Store(pixels.data(), 16, 16, 64, kSecond + 249 * kMilli);
  EXPECT_EQ(cache.Copy().bytes[0], 1);
  cache.Store(pixels.data(), 16, 16, 64, kSecond + 250 * kMilli);
  EXPECT_EQ(cache.Copy().bytes[0], 2);
  cache.Store(pixels.data(), 1, 1, 33'554'433, 9 * kSecond);
  EXPECT_EQ(cache.Copy().width, 16);
  cache.Close();
  EXPECT_TRUE(cache.Copy().bytes.empty());
  cache.Store(pixels.data(), 16, 16, 64, 20 * kSecond);  // was on its way
  EXPECT_TRUE(cache.Copy().bytes.empty());
}

// A host's time suite that answers what the row says.
struct TimeHost {
  static inline int64_t answer = 0;
  static inline Host::Error acquire = Host::kNoError;
  static Host::Error GetTicks(int64_t* ticks) {
    *ticks = answer;
    return Host::kNoError;
  }
  static Host::Error Acquire(const char*, int32_t, const void** suite) {
    static constexpr Host::TimeSuite kTime{GetTicks};
    *suite = acquire == Host::kNoError ? &kTime : nullptr;
    return acquire;
  }
  static Host::Error Release(const char*, int32_t) { return Host::kNoError; }
  static constexpr Host::SuiteAccess kAccess{Acquire, Release};
};

TEST(HostSuites, TheFrameRateIsFromOneTo240AndNonsenseChangesNothing) {
  struct Row {
    int64_t ticksPerSecond, ticksPerFrame;
    Host::Error acquire;
    int32_t fps;
  };
  const Row rows[] = {{254'016'000'000, 8'475'667'200, 0, 30},
                      {1'000, 10, 0, 100},
                      {1'000, 1, 0, 240},
                      {1'000, 5'000, 0, 1},
                      {60'000, 1'001, 0, 60},
                      {60'000, 2'000, -1, 60},
                      {0, 2'000, 0, 60},
                      {-5, 2'000, 0, 60},
                      {60'000, 0, 0, 60},
                      {60'000, -1, 0, 60}};
  HostSuites suites(&TimeHost::kAccess);
  for (const Row& row : rows) {
    TimeHost::answer = row.ticksPerSecond;
    TimeHost::acquire = row.acquire;
    suites.SetVideoFrameRate(row.ticksPerFrame);
    EXPECT_EQ(suites.Fps(), row.fps) << row.ticksPerSecond << " / " << row.ticksPerFrame;
  }
  EXPECT_EQ(suites.TicksPerSecond(), 60'000);
}

TEST(HostSuites, TicksASecondAreAskedForOnceAndOtherwiseACommonHosts) {
  TimeHost::answer = 0;
  TimeHost::acquire = Host::kNoError;
  HostSuites suites(&TimeHost::kAccess);
  EXPECT_EQ(suites.TicksPerSecond(), 254'016'000'000);
  TimeHost::answer = 90'000;
  EXPECT_EQ(suites.TicksPerSecond(), 90'000);
  TimeHost::answer = 1;
  EXPECT_EQ(suites.TicksPerSecond(), 90'000);
  EXPECT_EQ(HostSuites(nullptr).TicksPerSecond(), 254'016'000'000);
}

TEST(EngineList, IsCutAt255BytesWithItsCountKept) {
  const std::vector<EngineEntry> short_list{{"a", "bc", ""}, {"sw", "", "n"}};
  const std::vector<std::byte> payload = EncodeEngineList(short_list);
  const char wanted[] =
      "\x0d\x02\x01"
      "a"
      "\x02"
      "bc"
      "\x00"
      "\x02"
      "sw"
      "\x00"
      "\x01"
      "n";
  ASSERT_EQ(payload.size(), 14U);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(payload.data()), 14),
            std::string(wanted, 14));

  const std::vector<EngineEntry> long_list(20, {"engine", std::string(20, 'x'), "note"});
  const std::vector<std::byte> cut = EncodeEngineList(long_list);
  ASSERT_EQ(cut.size(), 256U);
  EXPECT_EQ(cut[0], std::byte{255});
  EXPECT_EQ(cut[1], std::byte{20});
}

}  // namespace
}  // namespace Veldrift
