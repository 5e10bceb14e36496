// Virtual time and all that hangs on it: the alarms of timer trees and of connection retries, the
// wall clock, and the controls that let time pass.
#include "platform/memory/loops.h"

#include <algorithm>
#include <new>
#include <vector>

#include "platform/clock.h"
#include "platform/common/timer_driver.h"
#include "platform/event_manager.h"
#include "platform/memory/alloc_faults.h"
#include "platform/memory/controls.h"
#include "platform/memory/world.h"

namespace ot {
namespace {

constexpr std::uint64_t ns_per_second = 1'000'000'000;

struct time_part {
  std::uint64_t now_ns = 100 * ns_per_second;  // since boot
  std::int64_t wall_at_boot = 1'700'000'000 - 100;
  std::vector<virtual_alarm*> alarms;
};

// The alarm that is due first, null when none is set. Of equal ones the older.
virtual_alarm* first_alarm() {
  virtual_alarm* first = nullptr;
  for (virtual_alarm* alarm : world_part<time_part>().alarms) {
    if (alarm->due_ns() != 0 && (first == nullptr || alarm->due_ns() < first->due_ns())) {
      first = alarm;
    }
  }
  return first;
}

}  // namespace

virtual_alarm::virtual_alarm(std::function<void()> fire) : fire_{std::move(fire)} {
  world_part<time_part>().alarms.push_back(this);
}

virtual_alarm::~virtual_alarm() {
  std::erase(world_part<time_part>().alarms, this);
}

void virtual_alarm::go_off() {
  due_ns_ = 0;
  fire_();
}

void fire_due_alarms() {
  const time_part& time = world_part<time_part>();
  for (virtual_alarm* alarm = first_alarm(); alarm != nullptr && alarm->due_ns() <= time.now_ns;
       alarm = first_alarm()) {
    alarm->go_off();
  }
}

// --- The timer tree's driver ---------------------------------------------------------------------

struct timer_alarm {
  virtual_alarm alarm;
};

std::uint64_t timer_now_ns() noexcept {
  return world_part<time_part>().now_ns;
}

timer_alarm* timer_alarm_new(const evm_sigevent& event) noexcept {
  if (take_failure("timer_alarm_new")) {
    return nullptr;
  }
  alloc_faults_paused pause;
  return new timer_alarm{virtual_alarm{[event] { evm_raise(event); }}};
}

void timer_alarm_set(timer_alarm* alarm, std::uint64_t due_ns) noexcept {
  alarm->alarm.set(due_ns);
}

void timer_alarm_free(timer_alarm* alarm) noexcept {
  delete alarm;
}

// --- The wall clock ------------------------------------------------------------------------------

std::int64_t clock_realtime_seconds() noexcept {
  const time_part& time = world_part<time_part>();
  return time.wall_at_boot + static_cast<std::int64_t>(time.now_ns / ns_per_second);
}

std::int64_t clock_realtime_milliseconds() noexcept {
  const time_part& time = world_part<time_part>();
  return time.wall_at_boot * 1'000 +
         static_cast<std::int64_t>(time.now_ns / (ns_per_second / 1'000));
}

std::int64_t clock_boottime_milliseconds() noexcept {
  return static_cast<std::int64_t>(world_part<time_part>().now_ns / (ns_per_second / 1'000));
}

namespace field {

void set_wall_clock(std::int64_t seconds) {
  time_part& time = world_part<time_part>();
  time.wall_at_boot = seconds - static_cast<std::int64_t>(time.now_ns / ns_per_second);
}

void advance(std::chrono::nanoseconds time) {
  time_part& clock = world_part<time_part>();
  const std::uint64_t end = clock.now_ns + static_cast<std::uint64_t>(time.count());
  run_pending();
  for (const virtual_alarm* next = first_alarm(); next != nullptr && next->due_ns() <= end;
       next = first_alarm()) {
    clock.now_ns = std::max(clock.now_ns, next->due_ns());
    run_pending();
  }
  clock.now_ns = end;
}

bool advance_to_next() {
  run_pending();
  const virtual_alarm* next = first_alarm();
  if (next == nullptr) {
    return false;
  }
  time_part& clock = world_part<time_part>();
  clock.now_ns = std::max(clock.now_ns, next->due_ns());
  run_pending();
  return true;
}

}  // namespace field
}  // namespace ot
