// Following the kernel's routes: when which registered prefixes are looked up again.
#include "platform/linux/routes/session.h"

#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <memory>
#include <new>
#include <utility>

#include "platform/linux/links/vrf_devices.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint64_t msec = 1000;
constexpr std::uint64_t settle_after = 50 * msec;
constexpr std::uint64_t pause_least = 1 * msec;
constexpr std::uint64_t pause_most = 50 * msec;
constexpr std::uint64_t tables_pause_most = 2'000 * msec;
constexpr std::uint64_t pause_factor = 4;
constexpr std::uint64_t audit_after = 30'000 * msec;
constexpr std::uint64_t reconnect_after = 100 * msec;

// Of a look-up by address alone.
constexpr std::uint32_t unknown_length = 0;

constexpr std::uint32_t groups =
    RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV4_RULE;

// Arms a one-shot timer, made at its first use.
int arm(evm* manager, sd_event_source** timer, std::uint64_t after, sd_event_time_handler_t handler,
        void* context) noexcept {
  return evm_start_timer(manager, timer, CLOCK_BOOTTIME, after, handler, context);
}

}  // namespace

fib_session::fib_session(evm* manager, const rtclient_callbacks& callbacks) noexcept
    : manager_(manager),
      callbacks_(callbacks),
      events_(
          {on_event, nullptr, [](void* self) { static_cast<fib_session*>(self)->take_events(); },
           [](void* self, int) { static_cast<fib_session*>(self)->disconnect(); }},
          this),
      prefixes_(
          [](void* lookup, const fib_prefix& prefix, rtclient_result* ret) {
            return static_cast<route_lookup*>(lookup)->find(prefix, ret);
          },
          &lookup_),
      waiter_(
          [](void* self) {
            auto& session = *static_cast<fib_session*>(self);
            if (std::exchange(session.waiting_, false)) {
              session.look_and_pause();
            }
          },
          this) {}

fib_session::~fib_session() {
  for (sd_event_source* source : {registered_, settled_, audit_, reconnect_}) {
    sd_event_source_disable_unref(source);
  }
}

int fib_session::start() noexcept {
  const int r = arm(manager_, &reconnect_, 0, on_connect, this);
  return r < 0 ? -r : status_ok;
}

int fib_session::connect() noexcept {
  int status = events_.open(groups);
  if (status == status_ok) {
    const int nexthops = RTNLGRP_NEXTHOP;
    setsockopt(events_.fd(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &nexthops, sizeof nexthops);
    status = lookup_.open();
  }
  return status == status_ok ? events_.follow(manager_) : status;
}

int fib_session::on_connect(sd_event_source*, std::uint64_t, void* self) {
  auto& session = *static_cast<fib_session*>(self);
  if (session.connect() != status_ok) {
    arm(session.manager_, &session.reconnect_, reconnect_after, on_connect, self);
    return 0;
  }
  session.callbacks_.reconnected();
  return 0;
}

// Events were lost: nobody knows which. What was registered is registered anew by its owner.
void fib_session::disconnect() {
  events_.close();
  prefixes_.clear();
  changes_.take();
  pausing_ = false;
  waiting_ = false;
  callbacks_.disconnected();
  arm(manager_, &reconnect_, 0, on_connect, this);
}

int fib_session::find(std::uint32_t address, std::uint32_t table_id,
                      rtclient_result** ret) noexcept {
  std::unique_ptr<rtclient_result> result{new (std::nothrow) rtclient_result{}};
  int status = no_memory;
  if (const rtclient_result* reported = prefixes_.being_reported(table_id, address);
      result == nullptr) {
    prefixes_.report_failed();
  } else if (reported != nullptr) {
    *result = *reported;
    status = status_ok;
  } else {
    status = lookup_.find({table_id, address, unknown_length}, result.get());
  }
  *ret = status == status_ok ? result.release() : nullptr;
  return status;
}

int fib_session::add(const fib_prefix& prefix) noexcept {
  const int status = prefixes_.add(prefix);
  if (status == status_ok || status == fib_already_registered) {
    arm(manager_, &registered_, 0, on_registered, this);
    schedule_audit();
  }
  return status;
}

void fib_session::schedule_audit() noexcept {
  int enabled = SD_EVENT_OFF;
  if (audit_ != nullptr) {
    sd_event_source_get_enabled(audit_, &enabled);
  }
  if (enabled == SD_EVENT_OFF && !prefixes_.empty()) {
    arm(manager_, &audit_, audit_after, on_audit, this);
  }
}

// The first event is answered at once, most of those that follow closely after a pause. While
// nothing is watched the kernel is asked nothing.
void fib_session::take_events() {
  if (prefixes_.empty()) {
    changes_.take();
    lookup_.forget_names();
    return;
  }
  if (changes_.none()) {
    return;  // routes that concern nobody
  }
  if (!pausing_ && !waiting_) {
    await_and_look();
  } else if (!reading_tables_) {
    look_inside_burst();
  }
}

void fib_session::on_event(void* self, const nlmsghdr& message) {
  auto& session = *static_cast<fib_session*>(self);
  route_record route;
  if (route_record_read(message, &route)) {
    session.note_route(route);
    return;
  }
  const bool rule = message.nlmsg_type == RTM_NEWRULE || message.nlmsg_type == RTM_DELRULE;
  if (rule) {
    session.lookup_.forget_rules();
  }
  session.lookup_.forget_tables();
  session.changes_.note_everything();
  session.more_changed_ = true;
}

// An address of the router's own, in the local table, counts in the default VRF.
void fib_session::note_route(const route_record& route) {
  lookup_.forget_table(route.table);
  const std::uint32_t table = route.table == RT_TABLE_LOCAL ? RT_TABLE_MAIN : route.table;
  the_vrf_devices().for_each_on(table, [&](std::uint32_t table_id) {
    const fib_prefix changed{table_id, route.destination, route.length};
    if (prefixes_.concerned_by(changed)) {
      changes_.note(changed);
    }
  });
}

// The first notification of what was registered since the last time.
int fib_session::on_registered(sd_event_source*, std::uint64_t, void* self) {
  auto& session = *static_cast<fib_session*>(self);
  session.prefixes_.look_at_related({});
  session.prefixes_.notify(session.callbacks_.changed);
  return 0;
}

// After a pause: what came in it is looked at. After a longer time without events everything is
// looked at once more.
int fib_session::on_settled(sd_event_source*, std::uint64_t, void* self) {
  auto& session = *static_cast<fib_session*>(self);
  if (session.waiting_) {
    return 0;
  }
  if (!session.changes_.none()) {
    session.await_and_look();
  } else if (session.pausing_) {
    session.pausing_ = false;
    arm(session.manager_, &session.settled_, settle_after, on_settled, self);
  } else {
    session.look_again(true);
  }
  return 0;
}

// Routes are announced when they are there; what else changes has to be whole first. Without a
// thread that waits for it, the loop does.
void fib_session::await_and_look() {
  if (!changes_.everything()) {
    look_and_pause();
    return;
  }
  more_changed_ = false;
  if (waiter_.open(manager_) == status_ok) {
    waiting_ = true;
    waiter_.ask();
  } else {
    lookup_.await_change();
    look_and_pause();
  }
}

// The pause is a multiple of what the look took, so looking never takes all the time there is.
void fib_session::look_and_pause() {
  using std::chrono::steady_clock;
  const auto begin = steady_clock::now();
  look_again(changes_.everything());
  if (std::exchange(more_changed_, false)) {
    changes_.note_everything();
  }
  const auto taken =
      std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - begin);
  const auto pause = std::clamp(pause_factor * static_cast<std::uint64_t>(taken.count()),
                                pause_least, reading_tables_ ? tables_pause_most : pause_most);
  pausing_ = true;
  arm(manager_, &settled_, pause, on_settled, this);
}

int fib_session::on_audit(sd_event_source*, std::uint64_t, void* self) {
  auto& session = *static_cast<fib_session*>(self);
  if (session.changes_.none()) {  // else a look is due in any case
    session.look_again(true);
  }
  session.schedule_audit();
  return 0;
}

void fib_session::look_again(bool all) {
  if (changes_.everything()) {
    lookup_.forget_names();
  }
  const std::vector<fib_prefix> routes = changes_.take();
  lookup_.forget_tables();
  lookup_.count_tables_anew();
  if (all) {
    prefixes_.keep_tables(
        [](std::uint32_t table) { return the_vrf_devices().with_table_id(table) != nullptr; });
    prefixes_.look_at_all();
  } else {
    prefixes_.look_at_related(routes);
  }
  reading_tables_ = lookup_.has_read_tables();
  prefixes_.notify(callbacks_.changed);
}

// In a pause only the prefixes that contain a changed route are looked up at once: those may be the
// ones that everybody waits for.
void fib_session::look_inside_burst() {
  for (const fib_prefix& route : changes_.unseen()) {
    prefixes_.look_at_containing(route);
  }
  prefixes_.notify(callbacks_.changed);
}

}  // namespace ot
