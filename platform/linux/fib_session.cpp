// Following the kernel's routes. The kernel announces most changes of routes, but not the end of an
// IPv4 route whose interface goes down, loses its address or its carrier, leaves its VRF, or whose
// next-hop object changes. So every event that may have such an effect has the registered prefixes
// looked up again: at once, and once more when a burst of events is over. A slow audit catches what
// no event tells of. Only a look-up that differs from the last one is told.
#include "platform/linux/fib_session.h"

#include <linux/rtnetlink.h>
#include <sys/epoll.h>

#include <cerrno>
#include <ctime>
#include <new>

#include "platform/common/vrf_requests.h"
#include "platform/ipv4.h"
#include "platform/linux/evm_linux.h"
#include "platform/linux/vrf_devices.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint64_t msec = 1000;
constexpr std::uint64_t settle_after = 50 * msec;
constexpr std::uint64_t audit_after = 30'000 * msec;
constexpr std::uint64_t reconnect_after = 100 * msec;
constexpr std::uint64_t accuracy = 1;

// Events come one a read. A flood of them must not keep the loop from its other work.
constexpr int reads_max = 256;

// More routes than this in one go are looked at as a change of everything.
constexpr std::size_t changed_max = 64;

constexpr std::uint32_t groups =
    RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV4_RULE;

bool same(const rtclient_result& a, const rtclient_result& b) noexcept {
  return a.route_found == b.route_found && a.prefix_length == b.prefix_length &&
         a.first_hop == b.first_hop;
}

bool overlap(const fib_prefix& prefix, const route_record& route) noexcept {
  const std::uint32_t shorter = prefix.length < route.length ? prefix.length : route.length;
  return prefix.table == route.table &&
         ((prefix.address ^ route.destination) & ipv4_prefixlen2mask(shorter)) == 0;
}

// The VRF device of a table; 0 for the default VRF.
std::uint32_t vrf_of(std::uint32_t table) noexcept {
  const vrf_device* device = the_vrf_devices().with_table(table);
  return device == nullptr || device->id == default_vrf_id ? 0 : device->id;
}

// Arms a one-shot timer, made at its first use.
int arm(evm* manager, sd_event_source** timer, std::uint64_t after, sd_event_time_handler_t handler,
        void* context) noexcept {
  sd_event* loop = evm_sd_event(manager);
  if (*timer == nullptr) {
    return sd_event_add_time_relative(loop, timer, CLOCK_BOOTTIME, after, accuracy, handler,
                                      context);
  }
  const int r = sd_event_source_set_time_relative(*timer, after);
  return r < 0 ? r : sd_event_source_set_enabled(*timer, SD_EVENT_ONESHOT);
}

}  // namespace

fib_session::~fib_session() {
  for (sd_event_source* source : {readable_, settled_, audit_, reconnect_}) {
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
  everything_changed_ = false;
  callbacks_.disconnected();
  arm(manager_, &reconnect_, 0, on_connect, this);
}

int fib_session::find(std::uint32_t address, std::uint32_t table, rtclient_result* ret) noexcept {
  return lookup_.find(address, table, vrf_of(table), ret);
}

int fib_session::add(const fib_prefix& prefix) noexcept {
  int status = status_ok;
  try {
    const auto [it, is_new] = prefixes_.try_emplace(prefix);
    it->second.told = false;
    status = is_new ? status_ok : fib_already_registered;
  } catch (const std::bad_alloc&) {
    return no_memory;
  }
  arm(manager_, &settled_, 0, on_settled, this);  // the first notification
  schedule_audit();
  return status;
}

int fib_session::remove(const fib_prefix& prefix) noexcept {
  return prefixes_.erase(prefix) == 1 ? status_ok : not_found_errno;
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
  // The first event of a burst is answered at once, the rest of it every 50 ms.
  if (!session.burst_) {
    session.burst_ = true;
    session.look_again(session.everything_changed_);
    arm(session.manager_, &session.settled_, settle_after, on_settled, self);
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

int fib_session::on_settled(sd_event_source*, std::uint64_t, void* self) {
  auto& session = *static_cast<fib_session*>(self);
  session.burst_ = session.everything_changed_ || !session.changed_.empty();
  session.look_again(session.everything_changed_ || !session.burst_);
  if (session.burst_) {
    arm(session.manager_, &session.settled_, settle_after, on_settled, self);
  }
  return 0;
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
  if (everything_changed_) {
    lookup_.await_change();
  }
  everything_changed_ = false;
  for (auto& [prefix, last] : prefixes_) {
    bool concerned = all || !last.told;
    for (auto it = routes.begin(); it != routes.end() && !concerned; ++it) {
      concerned = overlap(prefix, *it);
    }
    rtclient_result now;
    if (!concerned || find(prefix.address, prefix.table, &now) != status_ok ||
        (last.told && same(last.result, now))) {
      continue;
    }
    last = {now, true, true};
  }
  tell_changes();
}

// A callback may register and unregister.
void fib_session::tell_changes() {
  auto it = prefixes_.begin();
  while (it != prefixes_.end()) {
    if (!it->second.is_news) {
      ++it;
      continue;
    }
    it->second.is_news = false;
    const fib_prefix prefix = it->first;
    const rtclient_notification notification{fib_family_ipv4, prefix.table, prefix.address,
                                             prefix.length};
    callbacks_.changed(&notification);
    it = prefixes_.upper_bound(prefix);
  }
}

}  // namespace ot
