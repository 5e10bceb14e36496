// The wall clock, for times that people read. Intervals are the timer tree's business.
#pragma once

#include <cstdint>

namespace ot {

// Seconds since 1970-01-01 UTC (CLOCK_REALTIME). Any thread.
std::int64_t clock_realtime_seconds() noexcept;

// The same in milliseconds, rounded down.
std::int64_t clock_realtime_milliseconds() noexcept;

}  // namespace ot
