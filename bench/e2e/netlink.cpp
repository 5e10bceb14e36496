// Netlink by libmnl, with errors as exceptions.
#include "bench/e2e/netlink.h"

#include <cerrno>
#include <system_error>

namespace ot::bench {

netlink_socket open_netlink(unsigned groups, int flags) {
  netlink_socket socket(mnl_socket_open2(NETLINK_ROUTE, flags));
  if (!socket || mnl_socket_bind(socket.get(), groups, MNL_SOCKET_AUTOPID) < 0) {
    throw std::system_error(errno, std::generic_category(), "netlink socket");
  }
  return socket;
}

void request(mnl_socket* socket, nlmsghdr* message, unsigned sequence) {
  message->nlmsg_flags |= NLM_F_REQUEST | NLM_F_ACK;
  message->nlmsg_seq = sequence;
  if (mnl_socket_sendto(socket, message, message->nlmsg_len) < 0) {
    throw std::system_error(errno, std::generic_category(), "netlink request");
  }
  netlink_buffer data;
  const ssize_t size = mnl_socket_recvfrom(socket, data.data(), data.size());
  if (size < 0 || mnl_cb_run(data.data(), static_cast<std::size_t>(size), sequence,
                             mnl_socket_get_portid(socket), nullptr, nullptr) < 0) {
    throw std::system_error(errno, std::generic_category(), "netlink request's answer");
  }
}

void end_of_messages() {
  if (errno != EAGAIN) {
    throw std::system_error(errno, std::generic_category(), "netlink messages");
  }
}

}  // namespace ot::bench
