// How long an event loop was kept from waiting: a turn is one handler with all that leaves the
// process behind it, from the end of one wait to the begin of the next.
#pragma once

#include <cstdint>

#include "platform/evm.h"

namespace ot {

struct loop_turns {
  std::int64_t since = 0;  // wall-clock seconds: when measuring began
  std::uint64_t longest_us = 0;
  std::int64_t longest_at = 0;  // wall-clock seconds; 0 before the first turn
};

// The manager's turns since the service was ready. Manager's thread.
loop_turns evm_turns(const evm* manager) noexcept;

}  // namespace ot
