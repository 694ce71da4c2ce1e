#include "tools/receiver/media_timeline.h"

#include <gtest/gtest.h>

namespace Veldrift {
namespace {

constexpr StreamType kVideo = StreamType::Video;
constexpr StreamType kAudio = StreamType::Audio;
constexpr int64_t kWrap = int64_t{1} << 32;

TEST(MediaTimeline, BothStreamsShareOneLineAcrossTheWrap) {
  MediaTimeline timeline;
  EXPECT_EQ(timeline.Place(kVideo, 0xFFFFFFF0), kWrap - 16);
  EXPECT_EQ(timeline.Place(kAudio, 4), kWrap + 4);  // the other stream is already past it
  EXPECT_EQ(timeline.Place(kVideo, 0xFFFFFFFA), kWrap - 6);
  EXPECT_EQ(timeline.Place(kVideo, 20), kWrap + 20);
}

TEST(MediaTimeline, HoursOfItStayInStep) {
  MediaTimeline timeline;
  for (int64_t second = 0; second < 3 * 3600; ++second) {
    const int64_t micros = second * 1'000'000;
    ASSERT_EQ(timeline.Place(kVideo, uint32_t(micros)), micros);
    ASSERT_EQ(timeline.Place(kAudio, uint32_t(micros + 7)), micros + 7);
  }
}

TEST(MediaTimeline, ASenderThatBeganAnewGoesOnWhereItWas) {
  MediaTimeline timeline;
  timeline.Place(kVideo, 90'000'000);
  timeline.Place(kAudio, 90'000'000);
  EXPECT_EQ(timeline.Place(kVideo, 0), 90'020'000);
  EXPECT_EQ(timeline.Place(kVideo, 40'000), 90'060'000);
  EXPECT_EQ(timeline.Place(kAudio, 10'000), 90'020'000);
}

TEST(MediaTimeline, ASmallStepBackIsLeftAlone) {
  MediaTimeline timeline;
  timeline.Place(kAudio, 5'000'000);
  EXPECT_EQ(timeline.Place(kAudio, 4'500'000), 4'500'000);
}

}  // namespace
}  // namespace Veldrift
