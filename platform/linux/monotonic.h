// The monotonic clock, for bounded waits and ages. It stands while the machine is suspended; the
// timer tree's clock runs on.
#pragma once

#include <cstdint>
#include <ctime>

namespace ot {

// CLOCK_MONOTONIC in microseconds. Any thread.
inline std::uint64_t monotonic_us() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec) / 1000;
}

// The same in milliseconds, rounded down.
inline std::uint64_t monotonic_ms() noexcept {
  return monotonic_us() / 1000;
}

}  // namespace ot
