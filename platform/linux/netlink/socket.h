// A netlink socket: either one that listens for the kernel's events or one that asks and waits for
// the answer. The two kinds are never mixed, so an answer is never looked for among
// events.
#pragma once

#include <libmnl/libmnl.h>
#include <linux/netlink.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

namespace ot {

using netlink_visit = void (*)(void* context, const nlmsghdr& message);
using netlink_answer = void (*)(void* context, std::size_t question, const nlmsghdr& message);

// Room for one request with its attributes.
struct netlink_request {
  alignas(nlmsghdr) char bytes[512];
};

// What an error message says; 0 for another message.
int netlink_error(const nlmsghdr& message) noexcept;

class netlink_socket {
 public:
  // Opens a socket for events of `groups` (RTMGRP_* bits), with the largest receive buffer that the
  // system grants. It never blocks. 0 or an errno value.
  int open_events(std::uint32_t groups) noexcept;
  // Opens a socket for requests, of routing netlink or of another family (NETLINK_*). 0 or an
  // errno value.
  int open_requests(int family = NETLINK_ROUTE) noexcept;

  [[nodiscard]] int fd() const noexcept { return mnl_socket_get_fd(socket_.get()); }
  // What the kernel calls it by, also in the events of what it asks for.
  [[nodiscard]] std::uint32_t port() const noexcept { return mnl_socket_get_portid(socket_.get()); }

  // Reads the events that wait, as many as one call brings, and hands over each message. 0 when
  // more may wait, EAGAIN when nothing does any more, ENOBUFS when events were lost, or another
  // errno value.
  int receive_events(netlink_visit visit, void* context) noexcept;
  // Throws away what waits, as far as a flood lets it. 0, or the errno value of a socket that is
  // broken.
  int drain() noexcept;

  // Sends the request (its flags and sequence are completed here) and hands over each message of
  // the answer. 0, the kernel's errno value, or EINTR for a dump that the kernel's tables outran.
  int request(nlmsghdr* message, netlink_visit visit, void* context) noexcept;
  // The same for a question that the kernel answers by one message or an error.
  int ask(nlmsghdr* message, netlink_visit visit, void* context) noexcept;
  // The same for several such questions, laid one after the other; hands over the answer to each,
  // which may be an error (NLMSG_ERROR), with the number of the question. At most as many as the
  // socket has room for answers to (`questions_at_once`). 0 when all were answered.
  int ask_all(std::span<char> questions, netlink_answer visit, void* context) noexcept;
  static constexpr std::size_t questions_at_once = 32;

 private:
  struct close_socket {
    void operator()(mnl_socket* socket) const noexcept { mnl_socket_close(socket); }
  };

  int open(int family, std::uint32_t groups, int flags) noexcept;
  int receive(netlink_visit visit, void* context) noexcept;
  int receive_some(int flags, bool& ret_any, netlink_visit visit, void* context) noexcept;
  int exchange(nlmsghdr* message, bool one_answer, netlink_visit visit, void* context) noexcept;

  std::unique_ptr<mnl_socket, close_socket> socket_;
  std::uint32_t sequence_ = 0;
};

}  // namespace ot
