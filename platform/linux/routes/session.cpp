// Following the kernel's routes: when which registered prefixes are looked up again.
#include "platform/linux/routes/session.h"

#include <linux/rtnetlink.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>
#include <new>

#include "platform/linux/loop/sd_event.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint64_t msec = 1000;
constexpr std::uint64_t settle_after = 50 * msec;
constexpr std::uint64_t pause_least = 1 * msec;
constexpr std::uint64_t pause_most = 50 * msec;
constexpr std::uint64_t pause_factor = 4;
constexpr std::uint64_t audit_after = 30'000 * msec;
constexpr std::uint64_t reconnect_after = 100 * msec;

// Events come one a read. A flood of them must not keep the loop from its other work.
constexpr int reads_max = 256;

// More routes than this in one go are looked at as a change of everything.
constexpr std::size_t changed_max = 64;

constexpr std::uint32_t groups =
    RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV4_RULE;

// Arms a one-shot timer, made at its first use.
int arm(evm* manager, sd_event_source** timer, std::uint64_t after, sd_event_time_handler_t handler,
        void* context) noexcept {
  return evm_start_timer(manager, timer, CLOCK_BOOTTIME, after, handler, context);
}

}  // namespace

fib_session::~fib_session() {
  for (sd_event_source* source : {readable_, registered_, settled_, audit_, reconnect_}) {
    sd_event_source_disable_unref(source);
  }
}

int fib_session::start() noexcept {
  const int r = arm(manager_, &reconnect_, 0, on_connect, this);
  return r < 0 ? -r : status_ok;
}

int fib_session::connect() noexcept {
  readable_ = sd_event_source_disable_unref(readable_);
  int status = events_.open_events(groups);
  if (status == status_ok) {
    const int nexthops = RTNLGRP_NEXTHOP;
    setsockopt(events_.fd(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &nexthops, sizeof nexthops);
    status = lookup_.open();
  }
  if (status != status_ok) {
    return status;
  }
  const int r =
      sd_event_add_io(evm_sd_event(manager_), &readable_, events_.fd(), EPOLLIN, on_readable, this);
  return r < 0 ? -r : status_ok;
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
  readable_ = sd_event_source_disable_unref(readable_);
  prefixes_.clear();
  changed_.clear();
  looked_inside_ = 0;
  everything_changed_ = false;
  pausing_ = false;
  callbacks_.disconnected();
  arm(manager_, &reconnect_, 0, on_connect, this);
}

int fib_session::find(std::uint32_t address, std::uint32_t table, rtclient_result* ret) noexcept {
  return lookup_.find(address, table, ret);
}

int fib_session::add(const fib_prefix& prefix) noexcept {
  const int status = prefixes_.add(prefix);
  if (status != no_memory) {
    arm(manager_, &registered_, 0, on_registered, this);
    schedule_audit();
  }
  return status;
}

int fib_session::remove(const fib_prefix& prefix) noexcept {
  return prefixes_.remove(prefix);
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

int fib_session::on_readable(sd_event_source*, int, std::uint32_t, void* self) {
  auto& session = *static_cast<fib_session*>(self);
  int status = status_ok;
  for (int reads = 0; status == status_ok && reads < reads_max; ++reads) {
    status = session.events_.receive(on_event, self);
  }
  if (status != status_ok && status != EAGAIN) {
    session.disconnect();
    return 0;
  }
  // The first event is answered at once, most of those that follow closely after a pause.
  if (session.pausing_) {
    session.look_inside_burst();
  } else {
    session.look_and_pause();
  }
  return 0;
}

void fib_session::on_event(void* self, const nlmsghdr& message) {
  auto& session = *static_cast<fib_session*>(self);
  route_record route;
  if (!route_record_read(message, &route)) {
    session.everything_changed_ = true;
    return;
  }
  if (session.everything_changed_ || session.changed_.size() >= changed_max) {
    session.everything_changed_ = true;
    return;
  }
  try {
    session.changed_.push_back(route);
  } catch (const std::bad_alloc&) {
    session.everything_changed_ = true;
  }
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
  if (session.everything_changed_ || !session.changed_.empty()) {
    session.look_and_pause();
  } else if (session.pausing_) {
    session.pausing_ = false;
    arm(session.manager_, &session.settled_, settle_after, on_settled, self);
  } else {
    session.look_again(true);
  }
  return 0;
}

// The pause is a multiple of what the look took, so looking never takes all the time there is.
void fib_session::look_and_pause() {
  using std::chrono::steady_clock;
  const auto begin = steady_clock::now();
  look_again(everything_changed_);
  const auto taken =
      std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - begin);
  const auto pause =
      std::clamp(pause_factor * static_cast<std::uint64_t>(taken.count()), pause_least, pause_most);
  pausing_ = true;
  arm(manager_, &settled_, pause, on_settled, this);
}

int fib_session::on_audit(sd_event_source*, std::uint64_t, void* self) {
  auto& session = *static_cast<fib_session*>(self);
  session.look_again(true);
  session.schedule_audit();
  return 0;
}

void fib_session::look_again(bool all) {
  const std::vector<route_record> routes = std::move(changed_);
  changed_.clear();
  looked_inside_ = 0;
  if (everything_changed_) {
    lookup_.await_change();
    everything_changed_ = false;
  }
  if (all) {
    prefixes_.look_at_all();
  } else {
    prefixes_.look_at_related(routes);
  }
  prefixes_.notify(callbacks_.changed);
}

// In a pause only the prefixes that contain a changed route are looked up at once: those may be the
// ones that everybody waits for.
void fib_session::look_inside_burst() {
  for (; looked_inside_ < changed_.size(); ++looked_inside_) {
    prefixes_.look_at_containing(changed_[looked_inside_]);
  }
  prefixes_.notify(callbacks_.changed);
}

}  // namespace ot
