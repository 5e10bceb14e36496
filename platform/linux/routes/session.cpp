// Following the kernel's routes: the connection, what is registered, and what events tell.
#include "platform/linux/routes/session.h"

#include <arpa/inet.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <ctime>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include "platform/ipv4.h"
#include "platform/linux/links/vrf_devices.h"
#include "platform/linux/loop/sd_event.h"
#include "platform/linux/routes/message_filter.h"
#include "platform/status.h"

namespace ot {
namespace {

constexpr std::uint64_t msec = 1000;
constexpr std::uint64_t audit_after = 30'000 * msec;
constexpr std::uint64_t reconnect_after = 100 * msec;

// Of a look-up by address alone.
constexpr std::uint32_t unknown_length = 0;

constexpr std::uint32_t host_length = 32;

constexpr std::uint32_t groups =
    RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV4_RULE;

}  // namespace

fib_session::fib_session(evm* manager, const rtclient_callbacks& callbacks) noexcept
    : manager_(manager),
      callbacks_(callbacks),
      events_(
          {on_event, nullptr, [](void* self) { static_cast<fib_session*>(self)->take_events(); },
           [](void* self, int) { static_cast<fib_session*>(self)->disconnect(); }},
          this),
      prefixes_(
          [](void* lookup, const fib_prefix& prefix, fib_answer* ret) {
            return static_cast<route_lookup*>(lookup)->find(prefix, ret);
          },
          &lookup_,
          [](void* lookup, std::span<const fib_prefix> prefixes) {
            static_cast<route_lookup*>(lookup)->ask_ahead(prefixes);
          }),
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

// A one-shot timer, made at its first use.
int fib_session::arm(sd_event_source** timer, std::uint64_t after,
                     sd_event_time_handler_t handler) noexcept {
  return evm_start_timer(manager_, timer, CLOCK_BOOTTIME, after, handler, this);
}

int fib_session::start() noexcept {
  const int r = arm(&reconnect_, 0, on_connect);
  return r < 0 ? -r : status_ok;
}

int fib_session::connect() noexcept {
  int status = events_.open(groups);
  if (status == status_ok) {
    const int nexthops = RTNLGRP_NEXTHOP;
    setsockopt(events_.fd(), SOL_NETLINK, NETLINK_ADD_MEMBERSHIP, &nexthops, sizeof nexthops);
    status = lookup_.open();
    filter_messages();
  }
  return status == status_ok ? events_.follow(manager_) : status;
}

int fib_session::on_connect(sd_event_source*, std::uint64_t, void* self) {
  auto& session = *static_cast<fib_session*>(self);
  if (session.connect() != status_ok) {
    session.arm(&session.reconnect_, reconnect_after, on_connect);
    return 0;
  }
  session.callbacks_.reconnected();
  return 0;
}

// Events were lost: nobody knows which. What was registered is registered anew by its owner.
void fib_session::disconnect() {
  events_.close();
  prefixes_.clear();
  changes_.clear();
  pausing_ = waiting_ = rest_due_ = all_ = filtering_ = false;
  callbacks_.disconnected();
  arm(&reconnect_, 0, on_connect);
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
    if (!prefixes_.concerned_by({table_id, address, host_length})) {
      lookup_.forget_tables();  // of whose changes there no message came
    }
    fib_answer now;
    status = lookup_.find({table_id, address, unknown_length}, &now);
    *result = now.result;
  }
  *ret = status == status_ok ? result.release() : nullptr;
  return status;
}

int fib_session::add(const fib_prefix& prefix) noexcept {
  stop_filtering();
  const int status = prefixes_.add(prefix);
  if (status == status_ok || status == fib_already_registered) {
    arm(&registered_, 0, on_registered);
    schedule_audit();
  }
  return status;
}

// Without memory for it all messages come.
void fib_session::filter_messages() noexcept try {
  std::vector<address_range> ranges;
  ranges.reserve(prefixes_.size());
  prefixes_.for_each([&ranges](const fib_prefix& prefix) {
    const std::uint32_t mask = ipv4_prefixlen2mask(prefix.length);
    ranges.push_back({ntohl(prefix.address & mask), ntohl(prefix.address | ~mask)});
  });
  filtering_ = filter_route_messages(events_.fd(), std::move(ranges)) == status_ok || filtering_;
} catch (const std::bad_alloc&) {
}

// What is about to be registered may concern what the filter keeps away, and has kept away.
void fib_session::stop_filtering() noexcept {
  if (std::exchange(filtering_, false)) {
    pass_all_messages(events_.fd());
    lookup_.forget_tables();
  }
}

void fib_session::schedule_audit() noexcept {
  int enabled = SD_EVENT_OFF;
  if (audit_ != nullptr) {
    sd_event_source_get_enabled(audit_, &enabled);
  }
  if (enabled == SD_EVENT_OFF && !prefixes_.empty()) {
    arm(&audit_, audit_after, on_audit);
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
  note_change(message, session.changes_);
  session.more_changed_ = true;
}

void fib_session::note_change(const nlmsghdr& message, route_changes& ret) {
  const bool link = message.nlmsg_type == RTM_NEWLINK || message.nlmsg_type == RTM_DELLINK;
  const bool address = message.nlmsg_type == RTM_NEWADDR || message.nlmsg_type == RTM_DELADDR;
  const void* told = NLMSG_DATA(&message);
  if (link && message.nlmsg_len >= NLMSG_LENGTH(sizeof(ifinfomsg))) {
    ret.note_link(static_cast<std::uint32_t>(static_cast<const ifinfomsg*>(told)->ifi_index));
  } else if (address && message.nlmsg_len >= NLMSG_LENGTH(sizeof(ifaddrmsg))) {
    ret.note_link(static_cast<const ifaddrmsg*>(told)->ifa_index);
  } else {
    ret.note_everything();
  }
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
  session.filter_messages();
  session.prefixes_.look_at_related({});
  session.report();
  return 0;
}

}  // namespace ot
