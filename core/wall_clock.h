// The wall clock's time of moments that are kept in milliseconds since boot. When that clock is
// set, as on a router without a battery for it some time after the boot, they go along: what lies
// between two moments stays what has passed, and nobody takes the step for hours of a state. Main
// thread.
#pragma once

#include <cstdint>

namespace ot {

// Milliseconds since 1970-01-01 UTC, as the wall clock goes now, of a moment that
// clock_boottime_milliseconds told.
std::int64_t wall_clock_at(std::int64_t since_boot_ms) noexcept;

}  // namespace ot
