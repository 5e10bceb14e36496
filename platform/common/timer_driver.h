// What the timer tree needs of the platform it runs on: a clock that suspending the machine does
// not stop, and one alarm a tree.
#pragma once

#include <cstdint>

#include "platform/evm.h"

namespace ot {

struct timer_alarm;

// Nanoseconds since boot, suspended time included; the in-memory platform's virtual time.
std::uint64_t timer_now_ns() noexcept;

// An alarm that raises `event` when it is due. Null when there is no memory.
timer_alarm* timer_alarm_new(const evm_sigevent& event) noexcept;
// Sets the one time the alarm is due at, 0 for never. Cannot fail.
void timer_alarm_set(timer_alarm* alarm, std::uint64_t due_ns) noexcept;
void timer_alarm_free(timer_alarm* alarm) noexcept;

}  // namespace ot
