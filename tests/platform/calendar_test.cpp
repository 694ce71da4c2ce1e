#include "platform/calendar.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace Veldrift {
namespace {

TEST(Calendar, StampsAreThoseOfTheCalendar) {
  const struct {
    int64_t millis;
    const char* seconds;
    const char* millisToo;
  } kCases[] = {
      {0, "1970-01-01T00:00:00Z", "1970-01-01T00:00:00.000Z"},
      {951'782'400'000, "2000-02-29T00:00:00Z", "2000-02-29T00:00:00.000Z"},
      {1'767'225'599'999, "2025-12-31T23:59:59Z", "2025-12-31T23:59:59.999Z"},
      {1'772'368'205'123, "2026-03-01T12:30:05Z", "2026-03-01T12:30:05.123Z"},
      {-1, "1969-12-31T23:59:59Z", "1969-12-31T23:59:59.999Z"},
  };
  for (const auto& [millis, seconds, millisToo] : kCases) {
    EXPECT_EQ(UtcStamp(millis, StampPrecision::Seconds), seconds);
    EXPECT_EQ(UtcStamp(millis, StampPrecision::Millis), millisToo);
  }
}

// Minutes since 1970 of a time of the years 2026 and 2027, counted apart from the calendar's code.
int64_t Minutes(const CalendarTime& time) {
  constexpr int kDaysBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
  constexpr int64_t kDaysBefore2026 = 20'454;
  const int64_t days =
      kDaysBefore2026 + 365 * (time.year - 2026) + kDaysBefore[time.month - 1] + time.day - 1;
  return days * 1'440 + time.hour * 60 + time.minute;
}

TEST(Calendar, LocalTimeIsAZonesDistanceFromUtc) {
  for (const int64_t millis : {1'772'368'205'123, 1'791'024'000'000, 1'798'761'599'999}) {
    const CalendarTime utc = UtcTime(millis);
    const CalendarTime local = LocalTime(millis);
    ASSERT_EQ(Minutes(utc), millis / 60'000);
    const int64_t distance = Minutes(local) - Minutes(utc);
    EXPECT_LE(std::abs(distance), 14 * 60);
    EXPECT_EQ(distance % 15, 0);
    EXPECT_EQ(local.second, utc.second);
    EXPECT_EQ(local.millisecond, utc.millisecond);
  }
}

TEST(Calendar, TheClockIsPast2024) { EXPECT_GT(WallClockMillis(), 1'704'067'200'000); }

}  // namespace
}  // namespace Veldrift
