// Measures the turns of one loop.
#pragma once

#include <cstdint>
#include <utility>

#include "platform/clock.h"
#include "platform/linux/monotonic.h"
#include "platform/loop_turns.h"

namespace ot {

class turn_clock {
 public:
  // What was before is none of its turns.
  void restart() noexcept { *this = {}; }
  // A handler is about to run.
  void begin() noexcept { began_ = monotonic_us(); }

  // The loop is about to wait.
  void end() noexcept {
    if (began_ == 0) {
      return;
    }
    const std::uint64_t taken = monotonic_us() - std::exchange(began_, 0);
    if (taken > turns_.longest_us || turns_.longest_at == 0) {
      turns_.longest_us = taken;
      turns_.longest_at = clock_realtime_seconds();
    }
  }

  [[nodiscard]] const loop_turns& measured() const noexcept { return turns_; }

 private:
  loop_turns turns_{.since = clock_realtime_seconds()};
  std::uint64_t began_ = 0;  // 0: no turn is under way
};

}  // namespace ot
