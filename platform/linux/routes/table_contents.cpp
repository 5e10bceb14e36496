#include "platform/linux/routes/table_contents.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <utility>

#include "platform/ipv4.h"
#include "platform/status.h"

namespace ot {
namespace {

// How often a dump is tried again when routes changed under it. After that what it brought is
// taken: the changes follow as events, and each is a reason to look again.
constexpr int read_attempts = 4;

std::pair<std::uint32_t, std::uint32_t> place(const route_record& route) noexcept {
  return {route.length, route.destination};
}

bool is_before(const route_record& a, const route_record& b) noexcept {
  return place(a) < place(b);
}

// The routes of a prefix come in the order of their metrics, which a stable sort keeps; a table's
// dump is sorted otherwise.
void sort(std::vector<route_record>& routes) noexcept {
  std::stable_sort(routes.begin(), routes.end(), is_before);
}

}  // namespace

int table_contents::read(netlink_socket& requests, std::uint32_t table) noexcept {
  table_ = table;
  int status = EINTR;
  for (int attempt = 0; status == EINTR && attempt < read_attempts; ++attempt) {
    routes_.clear();
    own_addresses_.clear();
    no_memory_ = false;
    netlink_request request;
    nlmsghdr* message = mnl_nlmsg_put_header(request.bytes);
    message->nlmsg_type = RTM_GETROUTE;
    message->nlmsg_flags = NLM_F_DUMP;
    auto* route = static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(message, sizeof(rtmsg)));
    route->rtm_family = AF_INET;
    mnl_attr_put_u32(message, RTA_TABLE, table);
    status = requests.request(message, on_route, this);
  }
  sort(routes_);
  sort(own_addresses_);
  if (no_memory_) {
    return no_memory;
  }
  // The kernel has no table of that number, or one that never rests.
  return status == ENOENT || status == EINTR ? status_ok : status;
}

// A packet without a type of service, which we ask about, passes over a route for one.
void table_contents::on_route(void* self, const nlmsghdr& message) {
  auto& contents = *static_cast<table_contents*>(self);
  route_record route;
  if (!route_record_read(message, &route) || route.table != contents.table_ || route.tos != 0 ||
      route.dead) {
    return;
  }
  try {
    if (route_is_own_address(route)) {
      contents.own_addresses_.push_back(route);
    } else if (!route_is_kept_for_addresses(route)) {
      contents.routes_.push_back(route);
    }
  } catch (const std::bad_alloc&) {
    contents.no_memory_ = true;
  }
}

const route_record* table_contents::find(const std::vector<route_record>& routes,
                                         std::uint32_t address, std::uint32_t length) noexcept {
  route_record wanted;
  wanted.destination = address & ipv4_prefixlen2mask(length);
  wanted.length = length;
  const auto it = std::lower_bound(routes.begin(), routes.end(), wanted, is_before);
  return it != routes.end() && place(*it) == place(wanted) ? &*it : nullptr;
}

const route_record* table_contents::longest_match(std::uint32_t address,
                                                  std::uint32_t length_most) const noexcept {
  for (std::uint32_t length = length_most + 1; length-- > 0;) {
    if (const route_record* route = find(routes_, address, length)) {
      return route;
    }
  }
  return nullptr;
}

const route_record* table_contents::own_address(std::uint32_t address) const noexcept {
  return find(own_addresses_, address, 32);
}

}  // namespace ot
