#include "tools/view/playout.h"

#include <gtest/gtest.h>

#include <functional>

namespace Veldrift {
namespace {

constexpr int64_t kMs = kNanosPerMilli;
constexpr int64_t kPictureMicros = 40'000;
constexpr int64_t kOffsetNs =
    77 * kNanosPerSecond;  // the clocks have nothing to do with each other

// Pictures that are ready `delayMs(number)` after their time on the sender's line.
class Stream {
 public:
  using Delay = std::function<int64_t(int)>;

  void Run(int pictures, const Delay& delayMs) {
    for (int i = 0; i < pictures; ++i) {
      timeMicros_ += kPictureMicros;
      const int64_t readyNs = ReadyNs(delayMs(i));
      playout.Note(timeMicros_, readyNs);
      late += playout.DueNs(timeMicros_) < readyNs;
    }
  }
  // How long after the time of the sender's line the last picture is due.
  int64_t BehindMs() const {
    return (playout.DueNs(timeMicros_) - kOffsetNs - timeMicros_ * kNanosPerMicro) / kMs;
  }

  Playout playout;
  int late = 0;

 private:
  int64_t ReadyNs(int64_t delayMs) const {
    return kOffsetNs + timeMicros_ * kNanosPerMicro + delayMs * kMs;
  }

  int64_t timeMicros_ = 0;
};

TEST(Playout, WaitsAsLongAsTheUnrestMakesItAndNoLonger) {
  struct Case {
    const char* what;
    Stream::Delay delayMs;
    int64_t behindMs, waitMs;
  };
  const Case cases[] = {
      {"a still network costs nothing", [](int) { return 5; }, 5, 0},
      {"unrest", [](int i) { return 5 + i * 7 % 31; }, 35, 30},
      {"one in a hundred isn't waited for", [](int i) { return i % 100 == 50 ? 150 : 5; }, 5, 0},
      {"one in twenty is", [](int i) { return i % 20 == 10 ? 150 : 5; }, 150, 145},
      {"what comes a second late never is", [](int i) { return i % 10 == 9 ? 1'000 : 5; }, 5, 0},
  };
  for (const Case& c : cases) {
    Stream stream;
    stream.Run(400, c.delayMs);
    EXPECT_EQ(stream.BehindMs(), c.behindMs) << c.what;
    EXPECT_EQ(stream.playout.WaitNs() / kMs, c.waitMs) << c.what;
  }
}

// What is due must not jump back while it plays: the sound would be cut each time.
TEST(Playout, RisesAtOnceAndFallsSlowlyBehindUnrest) {
  Stream stream;
  stream.Run(100, [](int) { return 5; });
  stream.Run(4, [](int) { return 85; });
  EXPECT_EQ(stream.BehindMs(), 85);
  stream.Run(80, [](int) { return 5; });  // the span, and a little
  EXPECT_LT(stream.BehindMs(), 85);
  EXPECT_GT(stream.BehindMs(), 75);
  stream.Run(125, [](int) { return 5; });  // five seconds, 20 ms each
  EXPECT_EQ(stream.BehindMs(), 5);
}

TEST(Playout, FollowsASenderWhoseClockRunsApartAndOneThatBeginsAnew) {
  Stream stream;
  stream.Run(100, [](int) { return 5; });
  // A second behind for good, as behind a pause: nothing that comes now is too late for long.
  stream.late = 0;
  stream.Run(100, [](int) { return 1'005; });
  EXPECT_EQ(stream.BehindMs(), 1'005);
  EXPECT_LE(stream.late, 78);  // until what came before has left the span
  stream.late = 0;
  // Slower by a thousandth: 40 us each picture.
  for (int i = 0; i < 25; ++i) {
    stream.Run(25, [i](int) { return 1'005 + i; });
  }
  EXPECT_NEAR(double(stream.BehindMs()), 1'029, 1);
  // Early by two seconds: an old picture that came alone must not be the measure.
  stream.Run(100, [](int) { return -995; });
  EXPECT_EQ(stream.BehindMs(), -995);
}

TEST(Playout, NothingWasNoted) {
  const Playout playout;
  EXPECT_EQ(playout.DueNs(5), 0);
  EXPECT_EQ(playout.WaitNs(), 0);
}

}  // namespace
}  // namespace Veldrift
