// evdl_: receiving published track events in another process.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>

namespace ot {

struct evdl_subscriber;

struct evdl_filter {
  std::string track;  // exact, case-sensitive
  bool any_state = true;
  std::uint32_t state = 0;  // when any_state is false: 1 up, 2 down, 0 unknown
};

struct evdl_track_event {
  std::string track;
  std::uint32_t state = 0;  // 1 up, 2 down, 0 unknown
};

// Connects to the publisher "OBJECT_TRACKING" and registers `filters`; without any, every event
// comes. When the call returns 0 no later event is missed. Status code; ledger_unreachable when the
// service is not running, ledger_no_answer when it hangs, ledger_busy when it has no room.
int evdl_subscribe(std::span<const evdl_filter> filters, evdl_subscriber** ret) noexcept;
// The same without waiting: nothing may be received before the answer is there, to which the
// descriptor is readable too. 0 or a status code; ledger_no_answer when the service takes no
// connection now.
int evdl_subscribe_begin(std::span<const evdl_filter> filters, evdl_subscriber** ret) noexcept;
// Waits at most `timeout_ms` for the answer. 0, ledger_no_answer when it is not there, or another
// status code, after which the subscriber is of no use.
int evdl_subscribe_answer(const evdl_subscriber* subscriber, int timeout_ms) noexcept;
// Readable when an event waits.
int evdl_subscriber_fd(const evdl_subscriber* subscriber) noexcept;
// Waits at most `timeout_ms` (-1: for ever) and hands every event that has come to `on_event`. 0,
// also when nothing came; ledger_unreachable when the publisher has gone or has cut us off.
int evdl_receive(evdl_subscriber* subscriber, int timeout_ms,
                 const std::function<void(const evdl_track_event&)>& on_event);
void evdl_unsubscribe(evdl_subscriber* subscriber) noexcept;

}  // namespace ot
