// Routes as the kernel's messages describe them.
#pragma once

#include <linux/netlink.h>

#include <cstdint>

namespace ot {

// There may be millions, so they are small.
struct route_record {
  std::uint32_t destination = 0;  // network byte order
  std::uint32_t length = 0;
  std::uint32_t table = 0;
  std::uint32_t out_ifindex = 0;  // of the first next hop
  std::uint8_t type = 0;          // RTN_*
  std::uint8_t tos = 0;
  bool dead : 1 = false;        // the kernel passes over it: all of its next hops are dead
  bool many_links : 1 = false;  // there are next hops over other links than the first one's
  bool usable : 1 = false;  // forwards, and not all of its next hops are dead or without a carrier

  friend bool operator==(const route_record&, const route_record&) = default;
};

// Reads an IPv4 RTM_NEWROUTE or RTM_DELROUTE message; false when it is something else.
bool route_record_read(const nlmsghdr& message, route_record* ret) noexcept;

// What the kernel keeps among the routes for an address of the router's own.
bool route_is_own_address(const route_record& route) noexcept;
// The same, or what it keeps for broadcast and multicast: no route that anybody configured.
bool route_is_kept_for_addresses(const route_record& route) noexcept;

}  // namespace ot
