#include "platform/calendar.h"

#include <chrono>
#include <cstdio>

namespace Veldrift {

int64_t WallClockMillis() {
  using namespace std::chrono;
  return floor<milliseconds>(system_clock::now().time_since_epoch()).count();
}

CalendarTime UtcTime(int64_t wallClockMillis) {
  using namespace std::chrono;
  const sys_time<milliseconds> time{milliseconds(wallClockMillis)};
  const sys_days midnight = floor<days>(time);
  const year_month_day date(midnight);
  const auto ofDay = static_cast<int>((time - midnight).count());
  return {.year = static_cast<int>(date.year()),
          .month = static_cast<int>(static_cast<unsigned>(date.month())),
          .day = static_cast<int>(static_cast<unsigned>(date.day())),
          .hour = ofDay / 3'600'000,
          .minute = ofDay / 60'000 % 60,
          .second = ofDay / 1'000 % 60,
          .millisecond = ofDay % 1'000};
}

std::string UtcStamp(int64_t wallClockMillis, StampPrecision precision) {
  const CalendarTime time = UtcTime(wallClockMillis);
  char text[96];
  int length = std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", time.year,
                             time.month, time.day, time.hour, time.minute, time.second);
  std::string stamp(text, static_cast<size_t>(length));
  if (precision == StampPrecision::Millis) {
    length = std::snprintf(text, sizeof text, ".%03d", time.millisecond);
    stamp.append(text, static_cast<size_t>(length));
  }
  return stamp + "Z";
}

}  // namespace Veldrift
