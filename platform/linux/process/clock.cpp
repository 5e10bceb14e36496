// The wall clock of the system.
#include "platform/clock.h"

#include <ctime>

namespace ot {

std::int64_t clock_realtime_seconds() noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec;
}

}  // namespace ot
