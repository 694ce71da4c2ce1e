#include "tools/view/live_view.h"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

Picture MakePicture(int mark) {
  Picture picture(av_frame_alloc());
  picture->format = AV_PIX_FMT_YUV420P;
  picture->width = 64;
  picture->height = 64;
  EXPECT_EQ(av_frame_get_buffer(picture.get(), 0), 0);
  picture->pts = mark;
  return picture;
}

WholeFrame VideoOf(uint32_t connection, uint32_t timestamp) {
  WholeFrame frame;
  frame.connection = connection;
  frame.timestamp = timestamp;
  frame.firstDatagramNs = SteadyNanos();
  return frame;
}

constexpr int64_t kMuchLater = INT64_MAX;

TEST(LiveView, TheNewestPictureThatIsDueIsShown) {
  LiveView view;
  EXPECT_FALSE(view.Next(kMuchLater).has_value());
  EXPECT_FALSE(view.NextDueNs().has_value());
  // A tenth of a second from each other.
  for (int i = 0; i < 3; ++i) view.Show(*MakePicture(i), VideoOf(1, uint32_t(i) * 100'000));
  const int64_t firstNs = view.NextDueNs().value_or(0);
  EXPECT_LE(firstNs, SteadyNanos());
  EXPECT_FALSE(view.Next(firstNs - 1).has_value());
  const std::optional<DuePicture> first = view.Next(firstNs);
  ASSERT_TRUE(first.has_value());
  EXPECT_EQ(first->picture->pts, 0);
  EXPECT_FALSE(view.Next(firstNs).has_value());
  EXPECT_NEAR(double(view.NextDueNs().value_or(0) - firstNs), 1e8, 1e6);
  const std::optional<DuePicture> last = view.Next(kMuchLater);
  ASSERT_TRUE(last.has_value());
  EXPECT_EQ(last->picture->pts, 2);
  EXPECT_FALSE(view.NextDueNs().has_value());
}

TEST(LiveView, AnotherConnectionHasAnotherTimeline) {
  LiveView view;
  view.Show(*MakePicture(0), VideoOf(1, 0));
  view.Show(*MakePicture(1), VideoOf(1, 100'000));
  view.Show(*MakePicture(2), VideoOf(2, 90'000));
  const int64_t dueNs = view.NextDueNs().value_or(kMuchLater);
  EXPECT_LE(dueNs, SteadyNanos());
  const std::optional<DuePicture> due = view.Next(dueNs);
  ASSERT_TRUE(due.has_value());
  EXPECT_EQ(due->picture->pts, 2);
  // What the decoder still had of the connection before.
  view.Show(*MakePicture(3), VideoOf(1, 200'000));
  EXPECT_FALSE(view.NextDueNs().has_value());
}

TEST(LiveView, AWindowThatIsHeldUpPilesUpNothing) {
  LiveView view;
  for (int i = 0; i < 1'000; ++i) {
    view.Show(*MakePicture(i), VideoOf(1, 100'000'000 + uint32_t(i) * 33'333));
  }
  size_t kept = 0;
  for (; const std::optional<int64_t> dueNs = view.NextDueNs(); ++kept) {
    const std::optional<DuePicture> due = view.Next(*dueNs);
    ASSERT_TRUE(due.has_value());
    EXPECT_GE(due->picture->pts, 900);
  }
  EXPECT_GT(kept, 5U);
  EXPECT_LT(kept, 60U);
}

TEST(LiveView, ClosingEndsTheSession) {
  LiveView view;
  EXPECT_FALSE(view.Done());
  view.Close();
  EXPECT_TRUE(view.Done());
}

}  // namespace
}  // namespace Veldrift
