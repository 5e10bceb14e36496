// The wall clock, and the clock and the alarm under the timer tree: CLOCK_BOOTTIME, which runs on
// while the machine is suspended, and one timer source of the loop for each tree.
#include <ctime>

#include <memory>
#include <new>

#include "platform/clock.h"
#include "platform/common/timer_driver.h"
#include "platform/event_manager.h"
#include "platform/linux/loop/sd_event.h"

namespace ot {
namespace {

constexpr std::uint64_t ns_per_second = 1'000'000'000;
constexpr std::uint64_t ns_per_usec = 1'000;
constexpr std::int64_t ns_per_ms = 1'000'000;
constexpr std::int64_t ms_per_second = 1'000;

// Not 0: that would mean a quarter of a second to the loop.
constexpr std::uint64_t accuracy_usec = 1;

}  // namespace

struct timer_alarm {
  evm_sigevent event;
  sd_event_source* source = nullptr;

  ~timer_alarm() { sd_event_source_disable_unref(source); }
};

namespace {

int on_due(sd_event_source* /*source*/, std::uint64_t /*usec*/, void* alarm) {
  evm_run_or_raise(static_cast<timer_alarm*>(alarm)->event);
  return 0;
}

}  // namespace

std::int64_t clock_realtime_seconds() noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec;
}

std::int64_t clock_realtime_milliseconds() noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return std::int64_t{now.tv_sec} * ms_per_second + now.tv_nsec / ns_per_ms;
}

std::int64_t clock_boottime_milliseconds() noexcept {
  return static_cast<std::int64_t>(timer_now_ns() / ns_per_ms);
}

std::uint64_t timer_now_ns() noexcept {
  timespec now{};
  clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * ns_per_second +
         static_cast<std::uint64_t>(now.tv_nsec);
}

timer_alarm* timer_alarm_new(const evm_sigevent& event) noexcept {
  std::unique_ptr<timer_alarm> alarm(new (std::nothrow) timer_alarm{event});
  if (alarm == nullptr ||
      sd_event_add_time(evm_sd_event(event.manager), &alarm->source, CLOCK_BOOTTIME, UINT64_MAX,
                        accuracy_usec, on_due, alarm.get()) < 0) {
    return nullptr;
  }
  return alarm.release();
}

void timer_alarm_set(timer_alarm* alarm, std::uint64_t due_ns) noexcept {
  if (due_ns == 0) {
    sd_event_source_set_enabled(alarm->source, SD_EVENT_OFF);
    return;
  }
  // Rounded up: at the alarm the leaf must be due.
  sd_event_source_set_time(alarm->source, (due_ns + ns_per_usec - 1) / ns_per_usec);
  sd_event_source_set_enabled(alarm->source, SD_EVENT_ONESHOT);
}

void timer_alarm_free(timer_alarm* alarm) noexcept {
  delete alarm;
}

}  // namespace ot
