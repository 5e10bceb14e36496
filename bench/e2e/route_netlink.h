// Adding and deleting a route of the main table, and hearing of it as directly as any program can.
#pragma once

#include <cstdint>
#include <optional>

#include "bench/e2e/netlink.h"

namespace ot::bench {

struct route_prefix {
  std::uint32_t address = 0;  // network byte order
  std::uint8_t length = 0;

  // "ADDRESS/LENGTH"; throws.
  explicit route_prefix(const char* text);
};

class route_listener {
 public:
  explicit route_listener(const char* prefix);

  [[nodiscard]] int fd() const noexcept { return mnl_socket_get_fd(socket_.get()); }
  // Reads what has come; whether the route is there by the last message about it.
  std::optional<bool> receive();

 private:
  route_prefix prefix_;
  netlink_socket socket_;
};

class route_switch {
 public:
  route_switch(const char* prefix, unsigned ifindex);
  // Adds or deletes it. The kernel has taken note for its listeners when this returns.
  void set(bool there);

 private:
  route_prefix prefix_;
  unsigned ifindex_;
  unsigned sequence_ = 0;
  netlink_socket socket_;
};

}  // namespace ot::bench
