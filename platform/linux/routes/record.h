// What a route message says of a route.
#pragma once

#include <linux/netlink.h>

#include <cstdint>

namespace ot {

struct route_record {
  std::uint32_t destination = 0;  // network byte order
  std::uint32_t length = 0;
  std::uint32_t table = 0;
  std::uint32_t out_ifindex = 0;  // of the first next hop
  bool usable = false;            // forwards, and not all of its next hops are dead
};

// Reads an IPv4 RTM_NEWROUTE or RTM_DELROUTE message; false when it is something else.
bool route_record_read(const nlmsghdr& message, route_record* ret) noexcept;

}  // namespace ot
