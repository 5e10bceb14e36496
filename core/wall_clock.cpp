// Only a step is followed: the two clocks are not read at one instant, and what has been told of a
// moment shall be told again.
#include "core/wall_clock.h"

#include <cstdlib>

#include "platform/clock.h"

namespace ot {
namespace {

constexpr std::int64_t step_ms = 100;

std::int64_t boot_ms = 0;  // the wall clock's time of the boot

}  // namespace

std::int64_t wall_clock_at(std::int64_t since_boot_ms) noexcept {
  const std::int64_t now = clock_realtime_milliseconds() - clock_boottime_milliseconds();
  if (std::abs(now - boot_ms) >= step_ms) {
    boot_ms = now;
  }
  return boot_ms + since_boot_ms;
}

}  // namespace ot
