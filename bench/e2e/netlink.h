// A netlink socket of the measurements; nothing between it and the kernel.
#pragma once

#include <libmnl/libmnl.h>

#include <array>
#include <memory>

namespace ot::bench {

struct close_mnl_socket {
  void operator()(mnl_socket* socket) const noexcept { mnl_socket_close(socket); }
};
using netlink_socket = std::unique_ptr<mnl_socket, close_mnl_socket>;
using netlink_buffer = std::array<char, 32768>;

// `groups` are RTMGRP_* bits. Throws.
netlink_socket open_netlink(unsigned groups, int flags);

// Sends the request with this sequence number; the kernel has done it when this returns. Throws.
void request(mnl_socket* socket, nlmsghdr* message, unsigned sequence);

// Hands over each message that has come to a socket that does not block. Throws.
template <typename Visit>
void receive_messages(mnl_socket* socket, Visit visit);

// Throws for an errno other than "nothing has come".
void end_of_messages();

template <typename Visit>
void receive_messages(mnl_socket* socket, Visit visit) {
  netlink_buffer data;
  ssize_t size = 0;
  while ((size = mnl_socket_recvfrom(socket, data.data(), data.size())) >= 0) {
    int left = static_cast<int>(size);
    const auto* message = reinterpret_cast<const nlmsghdr*>(data.data());
    for (; mnl_nlmsg_ok(message, left); message = mnl_nlmsg_next(message, &left)) {
      visit(message);
    }
  }
  end_of_messages();
}

}  // namespace ot::bench
