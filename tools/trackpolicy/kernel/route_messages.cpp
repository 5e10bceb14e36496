// What is not understood of a route makes it a route that is not plain, and so none that we would
// have made.
#include "tools/trackpolicy/kernel/messages.h"

#include <linux/rtnetlink.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "platform/linux/netlink/attributes.h"

namespace ot::trackpolicy {
namespace {

ip_address read_address(std::uint8_t family, netlink_bytes value) {
  ip_address made;
  if (value.size() >= size_of_address(family)) {
    made.family = family;
    std::memcpy(made.bytes.data(), value.data(), size_of_address(family));
  }
  return made;
}

void read_metrics(netlink_bytes metrics, kernel_route& ret) {
  netlink_walk(metrics, [&ret](std::uint16_t type, netlink_bytes value) {
    if (type == RTAX_MTU) {
      ret.mtu = netlink_number<std::uint32_t>(value);
    } else {
      ret.plain = false;
    }
  });
}

void read_attribute(std::uint8_t family, std::uint16_t type, netlink_bytes value,
                    kernel_route& ret) {
  switch (type) {
    case RTA_DST:
      ret.key.to = read_address(family, value);
      break;
    case RTA_TABLE:
      ret.key.table = netlink_number<std::uint32_t>(value);
      break;
    case RTA_PRIORITY:
      ret.key.metric = netlink_number<std::uint32_t>(value);
      break;
    case RTA_GATEWAY:
      ret.via = read_address(family, value);
      break;
    case RTA_OIF:
      ret.ifindex = netlink_number<std::uint32_t>(value);
      break;
    case RTA_PREFSRC:
      ret.source = read_address(family, value);
      break;
    case RTA_METRICS:
      read_metrics(value, ret);
      break;
    case RTA_VIA:
    case RTA_NH_ID:
    case RTA_ENCAP:
    case RTA_FLOW:
      ret.plain = false;
      break;
    default:
      break;
  }
}

// The next hops of a route with several, each as a route.
void split(netlink_bytes hops, const kernel_route& whole, std::vector<kernel_route>& ret) {
  rtnexthop hop;
  while (hops.size() >= sizeof hop) {
    std::memcpy(&hop, hops.data(), sizeof hop);
    if (hop.rtnh_len < sizeof hop || hop.rtnh_len > hops.size()) {
      return;
    }
    kernel_route one = whole;
    one.ifindex = static_cast<std::uint32_t>(hop.rtnh_ifindex);
    one.onlink = (hop.rtnh_flags & RTNH_F_ONLINK) != 0;
    netlink_walk(hops.subspan(sizeof hop, hop.rtnh_len - sizeof hop),
                 [&](std::uint16_t type, netlink_bytes value) {
                   read_attribute(whole.key.to.family, type, value, one);
                 });
    ret.push_back(one);
    const std::size_t step = RTNH_ALIGN(static_cast<std::size_t>(hop.rtnh_len));
    hops = hops.subspan(std::min(step, hops.size()));
  }
}

void put_address(nlmsghdr* message, std::uint16_t type, const ip_address& address) {
  if (address.family != 0) {
    mnl_attr_put(message, type, size_of_address(address.family), address.bytes.data());
  }
}

// What a deletion and an addition have in common.
void put_route(nlmsghdr* message, rtmsg& header, const kernel_route& what) {
  header.rtm_family = what.key.to.family;
  header.rtm_dst_len = what.key.length;
  header.rtm_protocol = route_protocol;
  header.rtm_table = what.key.table < 256 ? static_cast<std::uint8_t>(what.key.table)
                                          : static_cast<std::uint8_t>(RT_TABLE_UNSPEC);
  mnl_attr_put_u32(message, RTA_TABLE, what.key.table);
  if (what.key.length > 0) {
    put_address(message, RTA_DST, what.key.to);
  }
  if (what.key.metric != 0) {
    mnl_attr_put_u32(message, RTA_PRIORITY, what.key.metric);
  }
  if (what.plain) {
    put_address(message, RTA_GATEWAY, what.via);
    if (what.ifindex != 0) {
      mnl_attr_put_u32(message, RTA_OIF, what.ifindex);
    }
  }
}

}  // namespace

bool read_route(const nlmsghdr& message, route_news* ret) {
  const bool about_route = message.nlmsg_type == RTM_NEWROUTE || message.nlmsg_type == RTM_DELROUTE;
  if (!about_route || message.nlmsg_len < NLMSG_LENGTH(sizeof(rtmsg))) {
    return false;
  }
  rtmsg header;
  std::memcpy(&header, NLMSG_DATA(&message), sizeof header);
  const bool known = header.rtm_family == AF_INET || header.rtm_family == AF_INET6;
  if (!known || (header.rtm_flags & RTM_F_CLONED) != 0) {
    return false;
  }
  kernel_route whole;
  whole.key.to.family = header.rtm_family;
  whole.key.length = header.rtm_dst_len;
  whole.key.table = header.rtm_table;
  whole.onlink = (header.rtm_flags & RTNH_F_ONLINK) != 0;
  whole.plain = header.rtm_type == RTN_UNICAST && header.rtm_tos == 0 && header.rtm_src_len == 0;
  netlink_bytes hops;
  netlink_walk(netlink_attributes<rtmsg>(message), [&](std::uint16_t type, netlink_bytes value) {
    if (type == RTA_MULTIPATH) {
      hops = value;
    } else {
      read_attribute(header.rtm_family, type, value, whole);
    }
  });
  ret->family = header.rtm_family;
  ret->protocol = header.rtm_protocol;
  ret->there = message.nlmsg_type == RTM_NEWROUTE;
  ret->replaces = ret->there && (message.nlmsg_flags & NLM_F_REPLACE) != 0;
  ret->routes.clear();
  if (!hops.empty() && header.rtm_family == AF_INET6) {
    split(hops, whole, ret->routes);
  } else {
    whole.plain = whole.plain && hops.empty();
    ret->routes.push_back(whole);
  }
  return true;
}

nlmsghdr* write_route_dump(char* place, std::uint8_t family) {
  auto* const header = begin_message<rtmsg>(place, RTM_GETROUTE, NLM_F_DUMP);
  header->rtm_family = family;
  header->rtm_protocol = route_protocol;
  return message_at(place);
}

nlmsghdr* write_addition(char* place, const kernel_route& what) {
  auto* const header =
      begin_message<rtmsg>(place, RTM_NEWROUTE, NLM_F_CREATE | NLM_F_EXCL | NLM_F_ACK);
  header->rtm_type = RTN_UNICAST;
  header->rtm_scope = static_cast<std::uint8_t>(
      what.via.family == 0 && what.key.to.family == AF_INET ? RT_SCOPE_LINK : RT_SCOPE_UNIVERSE);
  header->rtm_flags = what.onlink ? RTNH_F_ONLINK : 0U;
  put_route(message_at(place), *header, what);
  put_address(message_at(place), RTA_PREFSRC, what.source);
  if (what.mtu != 0) {
    nlattr* const metrics = mnl_attr_nest_start(message_at(place), RTA_METRICS);
    mnl_attr_put_u32(message_at(place), RTAX_MTU, what.mtu);
    mnl_attr_nest_end(message_at(place), metrics);
  }
  return message_at(place);
}

nlmsghdr* write_deletion(char* place, const kernel_route& what) {
  auto* const header = begin_message<rtmsg>(place, RTM_DELROUTE, NLM_F_ACK);
  header->rtm_scope = static_cast<std::uint8_t>(RT_SCOPE_NOWHERE);  // of any
  put_route(message_at(place), *header, what);
  return message_at(place);
}

}  // namespace ot::trackpolicy
