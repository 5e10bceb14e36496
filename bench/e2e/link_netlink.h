// The kernel's side of the measurement: switching a link, and hearing of it as directly as any
// program can.
#pragma once

#include <optional>

#include "bench/e2e/netlink.h"

namespace ot::bench {

// Whether the line protocol is up, by an RTM_NEWLINK message.
bool link_is_up(const nlmsghdr* message);

// A bare listener for link messages; nothing between it and the kernel.
class link_listener {
 public:
  // Listens for the interface with this index.
  explicit link_listener(unsigned ifindex);

  [[nodiscard]] int fd() const noexcept { return mnl_socket_get_fd(socket_.get()); }
  // Reads what has come; whether the line protocol is up by the last message about the interface,
  // nothing when there was none.
  std::optional<bool> receive();

 private:
  unsigned ifindex_;
  netlink_socket socket_;
};

// Switches links administratively up and down.
class link_switch {
 public:
  explicit link_switch(unsigned ifindex);
  // The kernel has done it, and taken note for its listeners, when this returns.
  void set(bool up);

 private:
  unsigned ifindex_;
  unsigned sequence_ = 0;
  netlink_socket socket_;
};

}  // namespace ot::bench
