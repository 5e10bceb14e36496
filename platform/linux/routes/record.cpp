#include "platform/linux/routes/record.h"

#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstring>

#include "platform/linux/netlink/attributes.h"

namespace ot {
namespace {

constexpr std::uint32_t host_length = 32;

// A next hop that the kernel has marked dead, or whose link has no carrier, carries nothing.
constexpr unsigned not_carrying = RTNH_F_DEAD | RTNH_F_LINKDOWN;

bool forwards(unsigned type) noexcept {
  return type == RTN_UNICAST || type == RTN_LOCAL;
}

// The next hops of a multipath route: the first one's interface, and what the best of them can do.
void read_multipath(netlink_bytes hops, route_record& route) noexcept {
  bool first = true;
  route.usable = false;
  route.dead = true;
  rtnexthop hop;
  while (hops.size() >= sizeof hop) {
    std::memcpy(&hop, hops.data(), sizeof hop);
    if (hop.rtnh_len < sizeof hop || hop.rtnh_len > hops.size()) {
      return;
    }
    if (first) {
      route.out_ifindex = static_cast<std::uint32_t>(hop.rtnh_ifindex);
      first = false;
    }
    route.many_links |= route.out_ifindex != static_cast<std::uint32_t>(hop.rtnh_ifindex);
    route.usable |= (hop.rtnh_flags & not_carrying) == 0;
    route.dead &= (hop.rtnh_flags & RTNH_F_DEAD) != 0;
    const std::size_t step = RTNH_ALIGN(static_cast<std::size_t>(hop.rtnh_len));
    hops = hops.subspan(std::min(step, hops.size()));
  }
}

}  // namespace

bool route_record_read(const nlmsghdr& message, route_record* ret) noexcept {
  const bool route_message =
      message.nlmsg_type == RTM_NEWROUTE || message.nlmsg_type == RTM_DELROUTE;
  if (!route_message || message.nlmsg_len < NLMSG_LENGTH(sizeof(rtmsg))) {
    return false;
  }
  const auto& header = *static_cast<const rtmsg*>(NLMSG_DATA(&message));
  if (header.rtm_family != AF_INET || header.rtm_dst_len > host_length) {
    return false;
  }
  route_record route;
  route.length = header.rtm_dst_len;
  route.table = header.rtm_table;
  route.type = header.rtm_type;
  route.tos = header.rtm_tos;
  route.dead = (header.rtm_flags & RTNH_F_DEAD) != 0;
  route.usable = (header.rtm_flags & not_carrying) == 0;
  netlink_bytes multipath;
  netlink_walk(netlink_attributes<rtmsg>(message), [&](std::uint16_t type, netlink_bytes value) {
    if (type == RTA_DST) {
      route.destination = netlink_number<std::uint32_t>(value);
    } else if (type == RTA_TABLE) {
      route.table = netlink_number<std::uint32_t>(value);
    } else if (type == RTA_OIF) {
      route.out_ifindex = netlink_number<std::uint32_t>(value);
    } else if (type == RTA_MULTIPATH) {
      multipath = value;
    }
  });
  if (!multipath.empty()) {
    read_multipath(multipath, route);
  }
  route.usable = route.usable && forwards(route.type);
  *ret = route;
  return true;
}

bool route_is_own_address(const route_record& route) noexcept {
  return route.type == RTN_LOCAL && route.length == host_length;
}

bool route_is_kept_for_addresses(const route_record& route) noexcept {
  return route_is_own_address(route) || route.type == RTN_BROADCAST || route.type == RTN_ANYCAST ||
         route.type == RTN_MULTICAST;
}

}  // namespace ot
