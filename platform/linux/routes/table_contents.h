// The routes of one table as a dump brought them, for longest-match look-ups where the kernel's own
// say nothing about that table.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/linux/netlink/socket.h"
#include "platform/linux/routes/record.h"

namespace ot {

class table_contents {
 public:
  // Reads the table of that number, an empty one where there is none. The requests socket checks
  // strictly, so that the kernel sends no other table. 0 or an errno value.
  int read(netlink_socket& requests, std::uint32_t table) noexcept;

  // The route that the kernel would take to the address (network byte order), were only this table
  // looked into: of the longest prefix, of at most that length, and of its routes the one of the
  // best metric that is not dead. Null when there is none; valid until the next read.
  [[nodiscard]] const route_record* longest_match(std::uint32_t address,
                                                  std::uint32_t length_most) const noexcept;
  // The entry by which the address is one of the router's own; null when it is none.
  [[nodiscard]] const route_record* own_address(std::uint32_t address) const noexcept;

 private:
  static void on_route(void* self, const nlmsghdr& message);
  [[nodiscard]] static const route_record* find(const std::vector<route_record>& routes,
                                                std::uint32_t address,
                                                std::uint32_t length) noexcept;

  std::uint32_t table_ = 0;
  bool no_memory_ = false;
  std::vector<route_record> routes_;  // sorted by length and destination, the best metric first
  std::vector<route_record> own_addresses_;
};

}  // namespace ot
