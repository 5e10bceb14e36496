// Routes as the kernel's messages describe them, and longest-match look-ups in its IPv4 routing
// tables.
#pragma once

#include <linux/netlink.h>

#include <array>
#include <cstdint>

#include "platform/fib_client.h"
#include "platform/linux/netlink/socket.h"

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

class route_lookup {
 public:
  // Opens the request socket. 0 or an errno value.
  int open() noexcept;

  // Returns once the change is whole that the kernel is at. It announces changes of links and
  // addresses before it has taken their routes away, so without this a look-up upon such an event
  // may be early, and may give an interface a name that it had before.
  void await_change() noexcept;

  // The longest match of `address` (network byte order) in `table`, that of a VRF device or of the
  // default VRF. A route whose next hops are all dead, or that refuses packets, is none. 0 or an
  // errno value.
  int find(std::uint32_t address, std::uint32_t table, rtclient_result* ret) noexcept;

 private:
  struct named_interface {
    std::uint32_t ifindex = 0;
    fixed_text<64> name;
  };

  int find_in_dump(std::uint32_t address, std::uint32_t table, rtclient_result* ret) noexcept;
  void take(const route_record& route, rtclient_result* ret) noexcept;
  const fixed_text<64>& name_of(std::uint32_t ifindex) noexcept;

  netlink_socket requests_;
  std::array<named_interface, 64> names_;  // by the ifindex's last bits
};

}  // namespace ot
