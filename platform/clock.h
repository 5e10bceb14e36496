// Clocks for times that people read. Intervals are the timer tree's business.
#pragma once

#include <cstdint>

namespace ot {

// Seconds since 1970-01-01 UTC (CLOCK_REALTIME). Any thread.
std::int64_t clock_realtime_seconds() noexcept;

// The same in milliseconds, rounded down.
std::int64_t clock_realtime_milliseconds() noexcept;

// Milliseconds since boot, also those of a suspended machine, rounded down (CLOCK_BOOTTIME). Any
// thread.
std::int64_t clock_boottime_milliseconds() noexcept;

}  // namespace ot
