// Link messages by libmnl: one request (set the interface up or down, acknowledged) and the reading
// of the link group. The rule for "up" is the one by which the service judges: administratively up,
// carrier there, and the operational state up or not known to the driver.
#include "bench/e2e/link_netlink.h"

#include <linux/if.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <cstdint>

namespace ot::bench {

bool link_is_up(const nlmsghdr* message) {
  const auto* link = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
  std::uint8_t operstate = IF_OPER_UNKNOWN;
  const auto* attribute =
      static_cast<const nlattr*>(mnl_nlmsg_get_payload_offset(message, sizeof *link));
  const auto* end = static_cast<const char*>(mnl_nlmsg_get_payload_tail(message));
  while (mnl_attr_ok(attribute, static_cast<int>(end - reinterpret_cast<const char*>(attribute)))) {
    if (mnl_attr_get_type(attribute) == IFLA_OPERSTATE) operstate = mnl_attr_get_u8(attribute);
    attribute = mnl_attr_next(attribute);
  }
  return (link->ifi_flags & IFF_UP) != 0 && (link->ifi_flags & IFF_LOWER_UP) != 0 &&
         (operstate == IF_OPER_UP || operstate == IF_OPER_UNKNOWN);
}
link_listener::link_listener(unsigned ifindex)
    : ifindex_(ifindex), socket_(open_netlink(RTMGRP_LINK, SOCK_NONBLOCK)) {}

std::optional<bool> link_listener::receive() {
  std::optional<bool> up;
  receive_messages(socket_.get(), [&](const nlmsghdr* message) {
    if (message->nlmsg_type != RTM_NEWLINK) return;
    const auto* link = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
    if (static_cast<unsigned>(link->ifi_index) == ifindex_) up = link_is_up(message);
  });
  return up;
}

link_switch::link_switch(unsigned ifindex) : ifindex_(ifindex), socket_(open_netlink(0, 0)) {}

void link_switch::set(bool up) {
  netlink_buffer data;
  nlmsghdr* message = mnl_nlmsg_put_header(data.data());
  message->nlmsg_type = RTM_NEWLINK;
  auto* link = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
  link->ifi_index = static_cast<int>(ifindex_);
  link->ifi_change = IFF_UP;
  link->ifi_flags = up ? IFF_UP : 0;
  request(socket_.get(), message, ++sequence_);
}

}  // namespace ot::bench
