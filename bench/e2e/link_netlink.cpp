// Link messages by libmnl: one request (set the interface up or down, acknowledged) and the reading
// of the link group. The rule for "up" is the one by which the service judges: administratively up,
// carrier there, and the operational state up or not known to the driver.
#include "bench/e2e/link_netlink.h"

#include <libmnl/libmnl.h>
#include <linux/if.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace ot::bench {
namespace {

using buffer = std::array<char, 32768>;

netlink_socket open_netlink(unsigned groups, int flags) {
  netlink_socket socket(mnl_socket_open2(NETLINK_ROUTE, flags));
  if (!socket || mnl_socket_bind(socket.get(), groups, MNL_SOCKET_AUTOPID) < 0) {
    throw std::system_error(errno, std::generic_category(), "netlink socket");
  }
  return socket;
}

bool is_up(const nlmsghdr* message, const ifinfomsg* link) {
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

}  // namespace

void close_mnl_socket::operator()(mnl_socket* socket) const noexcept {
  mnl_socket_close(socket);
}

link_listener::link_listener(unsigned ifindex)
    : ifindex_(ifindex), socket_(open_netlink(RTMGRP_LINK, SOCK_NONBLOCK)) {}

int link_listener::fd() const noexcept {
  return mnl_socket_get_fd(socket_.get());
}

std::optional<bool> link_listener::receive() {
  buffer data;
  std::optional<bool> up;
  ssize_t size = 0;
  while ((size = mnl_socket_recvfrom(socket_.get(), data.data(), data.size())) >= 0) {
    int left = static_cast<int>(size);
    const auto* message = reinterpret_cast<const nlmsghdr*>(data.data());
    for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
      if (message->nlmsg_type != RTM_NEWLINK) continue;
      const auto* link = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
      if (static_cast<unsigned>(link->ifi_index) == ifindex_) up = is_up(message, link);
    }
  }
  if (errno != EAGAIN) throw std::system_error(errno, std::generic_category(), "link messages");
  return up;
}

link_switch::link_switch(unsigned ifindex) : ifindex_(ifindex), socket_(open_netlink(0, 0)) {}

void link_switch::set(bool up) {
  buffer data;
  nlmsghdr* message = mnl_nlmsg_put_header(data.data());
  message->nlmsg_type = RTM_NEWLINK;
  message->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
  message->nlmsg_seq = ++sequence_;
  auto* link = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
  link->ifi_index = static_cast<int>(ifindex_);
  link->ifi_change = IFF_UP;
  link->ifi_flags = up ? IFF_UP : 0;
  if (mnl_socket_sendto(socket_.get(), message, message->nlmsg_len) < 0) {
    throw std::system_error(errno, std::generic_category(), "link request");
  }
  const ssize_t size = mnl_socket_recvfrom(socket_.get(), data.data(), data.size());
  if (size < 0 || mnl_cb_run(data.data(), static_cast<std::size_t>(size), sequence_,
                             mnl_socket_get_portid(socket_.get()), nullptr, nullptr) < 0) {
    throw std::system_error(errno, std::generic_category(), "link request's answer");
  }
}

}  // namespace ot::bench
