// Routes and interfaces as the kernel's messages.
#pragma once

#include <libmnl/libmnl.h>
#include <linux/netlink.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tools/trackpolicy/kernel/links.h"
#include "tools/trackpolicy/kernel/route.h"

namespace ot::trackpolicy {

// A message about a route of any protocol; several next hops of IPv6 are several routes, as they
// are when they are deleted.
struct route_news {
  std::uint8_t family = 0;
  std::uint8_t protocol = 0;
  bool there = false;     // else deleted
  bool replaces = false;  // another one of its key
  std::vector<kernel_route> routes;
};
// False when it is about something else.
bool read_route(const nlmsghdr& message, route_news* ret);

// False when it is no message about a whole interface; with `ret_gone` only its index is told.
bool read_link(const nlmsghdr& message, link_fact* ret, bool* ret_gone);

// Each writes a message to `place`, which has room for `message_room` bytes; the sender completes
// flags and sequence.
inline constexpr std::size_t message_room = 256;
inline nlmsghdr* message_at(char* place) noexcept {
  return reinterpret_cast<nlmsghdr*>(place);
}
// The fixed header of a new message at `place`, zeros.
template <typename Header>
Header* begin_message(char* place, unsigned type, unsigned flags) noexcept {
  nlmsghdr* const message = mnl_nlmsg_put_header(place);
  message->nlmsg_type = static_cast<std::uint16_t>(type);
  message->nlmsg_flags = static_cast<std::uint16_t>(flags);
  return static_cast<Header*>(mnl_nlmsg_put_extra_header(message, sizeof(Header)));
}
nlmsghdr* write_route_dump(char* place, std::uint8_t family);
nlmsghdr* write_link_dump(char* place);
// Answered when the kernel is done with the change of an interface that it is at.
nlmsghdr* write_link_question(char* place);
// Replaces nothing.
nlmsghdr* write_addition(char* place, const kernel_route& what);
// Takes only a route of our protocol.
nlmsghdr* write_deletion(char* place, const kernel_route& what);
nlmsghdr* write_link_change(char* place, std::uint32_t index, bool up);

// What an error message says beside its number.
std::string error_text(const nlmsghdr& message);

// Has the socket get, of the messages about routes, those of our protocol and those that replace
// others. 0 or an errno value.
int filter_foreign_routes(int fd) noexcept;

}  // namespace ot::trackpolicy
