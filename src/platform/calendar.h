// The calendar. The time is an argument; what asks the clock for it stands at the edge.
#pragma once

#include <cstdint>
#include <string>

namespace Veldrift {

struct CalendarTime {
  int year, month, day, hour, minute, second, millisecond;
};

// Milliseconds since the beginning of 1970, UTC, by the system's clock, which the user may set.
int64_t WallClockMillis();

// By arithmetic alone: also where nothing may be allocated or locked.
CalendarTime UtcTime(int64_t wallClockMillis);

// In the zone that the system is set to. Bodies in posix/ and win32/.
CalendarTime LocalTime(int64_t wallClockMillis);

// "2026-03-01T12:30:05.123Z", or without the milliseconds, which are cut: "2026-03-01T12:30:05Z".
enum class StampPrecision { Seconds, Millis };
std::string UtcStamp(int64_t wallClockMillis, StampPrecision precision);

}  // namespace Veldrift
