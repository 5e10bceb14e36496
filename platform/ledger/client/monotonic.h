// Time for bounded waits.
#pragma once

#include <cstdint>
#include <ctime>

namespace ot {

inline std::uint64_t monotonic_us() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec) / 1000;
}

}  // namespace ot
